#include "listed_trees.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace cli_test {

namespace {

int checked(int result, char const* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

int openFolder(int at, char const* name) {
    return checked(::openat(at, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC), "openat");
}

void makeFile(int at, std::string const& name) {
    ::close(checked(::openat(at, name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644), "openat"));
}

// Makes folders of these names in each other's first; gives the last one.
int makeFolders(std::filesystem::path const& root, std::size_t levels,
                std::vector<std::string> const& names) {
    int at = openFolder(AT_FDCWD, root.c_str());
    for (std::size_t i = 0; i < levels; ++i) {
        for (std::string const& name : names) {
            checked(::mkdirat(at, name.c_str(), 0755), "mkdirat");
        }
        int const next = openFolder(at, names.front().c_str());
        ::close(at);
        at = next;
    }
    return at;
}

} // namespace

std::vector<std::string> linesOf(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

void makeOddTree(std::filesystem::path const& root) {
    std::vector<std::string> const names{"plain",
                                         " two  blanks ",
                                         "100%",
                                         "a%41b",
                                         "%FF",
                                         "what?x=1",
                                         "#1",
                                         "a!",
                                         "!",
                                         "line\nbreak",
                                         "\n",
                                         "tab\t",
                                         "\x01\x1b[0m\x7f",
                                         "\xF0\x9F\x8D\x8B",
                                         "\xEF\xBD\x9E",
                                         "\xC3\xA4",
                                         "a\xCC\x88",
                                         "caf\xE9",
                                         "\xFF",
                                         "\xC0\xAF",
                                         "\xED\xA0\x80",
                                         "mem:",
                                         "a:b",
                                         "back\\slash",
                                         "'\"`$x",
                                         "*",
                                         "-rf",
                                         ".hidden",
                                         "...",
                                         std::string(255, 'n'),
                                         "[a,b]",
                                         "~"};
    for (std::string const& name : names) {
        std::filesystem::path const inner = root / ("in " + name.substr(0, 200));
        std::filesystem::create_directory(inner);
        for (std::string const& file : names) {
            writeFile(inner / file, "");
        }
        std::filesystem::create_directory(root / name);
        writeFile(root / name / name, "");
    }
}

void makeChain(std::filesystem::path const& root, std::size_t folders) {
    int const last = makeFolders(root, folders, {"folder"});
    makeFile(last, "leaf");
    ::close(last);
}

void makeForkedChain(std::filesystem::path const& root, std::size_t folders) {
    ::close(makeFolders(root, folders, {"folder", "side"}));
}

void makeFiles(std::filesystem::path const& root, std::size_t files) {
    int const at = openFolder(AT_FDCWD, root.c_str());
    for (std::size_t i = 0; i < files; ++i) {
        makeFile(at, "a-file-with-a-name-of-some-length-" + std::to_string(i));
    }
    ::close(at);
}

void removeTree(std::filesystem::path const& root) {
    CommandRun::shell("rm -rf '" + root.string() + "'").run();
}

} // namespace cli_test
