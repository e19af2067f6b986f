#include "lying_server.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace foundation::storage::provider::http::test {

namespace {

std::string lineFrom(int descriptor) {
    std::string line;
    char c = 0;
    while (::read(descriptor, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return line;
}

} // namespace

void LyingServer::makeCertificate(Tls tls) const {
    std::ofstream(logPath_ + ".ext") << "basicConstraints=CA:true\nsubjectAltName=IP:127.0.0."
                                     << (tls == Tls::OfAnotherName ? '2' : '1') << '\n';
    std::string const key = logPath_ + ".key";
    std::string const request = logPath_ + ".csr";
    // One after the other: the second reads the key before it reads the request.
    std::string const make =
        "openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=test "
        "-keyout " +
        key + " -out " + request + " 2>/dev/null && openssl x509 -req -in " + request +
        " -signkey " + key + " -extfile " + logPath_ + ".ext -days " +
        (tls == Tls::Expired ? "-1" : "2") + " -out " + certificate() + " 2>/dev/null";
    if (std::system(make.c_str()) != 0) { // NOLINT(cert-env33-c): a fixed line
        throw std::runtime_error("no certificate can be made");
    }
}

LyingServer::LyingServer(Tls tls, char const* script) {
    std::string path = "/tmp/lying-server-XXXXXX";
    int const log = ::mkstemp(path.data());
    int toServer[2];
    int fromServer[2];
    if (log < 0 || ::pipe(toServer) != 0 || ::pipe(fromServer) != 0) {
        throw std::system_error(errno, std::generic_category());
    }
    ::close(log);
    logPath_ = path;
    if (tls != Tls::No) {
        makeCertificate(tls);
    }
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(toServer[0], STDIN_FILENO);
        ::dup2(fromServer[1], STDOUT_FILENO);
        for (int const descriptor : {toServer[0], toServer[1], fromServer[0], fromServer[1]}) {
            ::close(descriptor);
        }
        if (tls != Tls::No) {
            ::execlp("python3", "python3", "-I", "-S", script, logPath_.c_str(),
                     certificate().c_str(), (logPath_ + ".key").c_str(), nullptr);
        } else {
            ::execlp("python3", "python3", "-I", "-S", script, logPath_.c_str(), nullptr);
        }
        ::_exit(127);
    }
    ::close(toServer[0]);
    ::close(fromServer[1]);
    input_ = toServer[1];
    std::istringstream ports(lineFrom(fromServer[0]));
    ::close(fromServer[0]);
    std::string const host = "127.0.0.1:";
    for (std::string* const authority : {&authority_, &otherAuthority_, &secureAuthority_}) {
        std::string port;
        if (ports >> port) {
            *authority = host + port;
        }
    }
    if (otherAuthority_.empty()) {
        throw std::runtime_error("the server did not start");
    }
}

LyingServer::~LyingServer() {
    ::close(input_);
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    for (char const* const end : {"", ".crt", ".csr", ".key", ".ext", ".tls"}) {
        ::unlink((logPath_ + end).c_str());
    }
}

std::vector<std::string> LyingServer::requests() const {
    std::ifstream file(logPath_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::size_t LyingServer::countOf(std::string const& part) const {
    auto const all = requests();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [&](std::string const& request) {
            return request.find(part) != std::string::npos;
        }));
}

std::size_t LyingServer::tlsConnections() const {
    std::ifstream file(logPath_ + ".tls");
    return static_cast<std::size_t>(
        std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n'));
}

std::string content(std::size_t size, std::size_t from) {
    std::string bytes(size - from, '\0');
    for (std::size_t i = from; i < size; ++i) {
        bytes[i - from] = static_cast<char>((i * 7 + (i >> 8) * 13) & 255);
    }
    return bytes;
}

} // namespace foundation::storage::provider::http::test
