#include "lies.hpp"

#include "sweep.hpp"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace remote_faults {

namespace {

using Tls = LyingServer::Tls;

std::vector<Lie> liesOf(std::string const& target) {
    if (target == "web") {
        return liesOfTheWeb();
    }
    return target == "dav" ? liesInWebDav() : liesOfAStore();
}

struct Senseless {
    char const* kind;
    char const* target;
    char const* why;
};

constexpr Senseless senseless[] = {
    {"an error inside a 200", "web", "what a file holds is nobody's business"},
    {"a refused write", "web", "nothing is written"},
    {"no HTTP, or too much of it", "dav", "the web's client reads it"},
    {"no HTTP, or too much of it", "s3", "the web's client reads it"},
    {"a token that does not advance", "web", "nothing is listed"},
    {"a token that does not advance", "dav", "a listing is one answer"},
    {"hostile names", "web", "nothing is listed"},
    {"an XML bomb", "web", "no XML is read"},
    {"no XML, or another one", "web", "no XML is read"},
    {"a wrong range", "dav", "files are read as those of the web"},
    {"another version", "dav", "files are read as those of the web"},
    {"a reset at every 10th byte", "dav", "files are read as those of the web"},
};

} // namespace

std::vector<Lie> liesOfCertificates(
    std::string const& behaviour,
    std::function<std::optional<std::string>(Stage const&, LyingServer const&)> const& run) {
    std::vector<Lie> lies;
    for (auto const& [kind, tls] : {std::pair{"an expired certificate", Tls::Expired},
                                    std::pair{"a certificate of another", Tls::OfAnotherName},
                                    std::pair{"a certificate of nobody", Tls::Yes}}) {
        lies.push_back({kind, behaviour, "", Lie::Result::Refused, run, tls});
    }
    return lies;
}

std::vector<std::string> kindsOfLies(std::string const& target) {
    std::set<std::string> kinds;
    for (Lie const& lie : liesOf(target)) {
        kinds.insert(lie.kind);
    }
    return {kinds.begin(), kinds.end()};
}

std::vector<std::string> liesWithoutSense(std::string const& target) {
    std::set<std::string> all;
    for (char const* const other : {"web", "dav", "s3"}) {
        all.merge([&] {
            auto const kinds = kindsOfLies(other);
            return std::set<std::string>(kinds.begin(), kinds.end());
        }());
    }
    std::vector<std::string> result;
    auto const told = kindsOfLies(target);
    for (std::string const& kind : all) {
        if (std::find(told.begin(), told.end(), kind) != told.end()) {
            continue;
        }
        auto const* const reason =
            std::find_if(std::begin(senseless), std::end(senseless), [&](Senseless const& one) {
                return one.kind == kind && one.target == target;
            });
        if (reason == std::end(senseless)) {
            throw std::logic_error(target + " is not told the lie \"" + kind + "\", for no reason");
        }
        result.push_back(kind + ": " + reason->why);
    }
    return result;
}

void sweepLies(std::string const& name, Extent extent, SweepResult& result) {
    LyingServers servers;
    std::set<std::string> told;
    for (Lie const& lie : liesOf(name)) {
        if (!told.insert(lie.kind).second && extent == Extent::Few) {
            continue;
        }
#ifdef WITH_S3
        LyingServer const& server = name == "s3" ? servers.store(lie.tls) : servers.web(lie.tls);
        Target const target = name == "s3"
                                  ? lyingStore(server, lie.behaviour, lie.met, lie.tls)
                                  : lyingWeb(server, name, lie.behaviour, lie.met, lie.tls);
#else
        LyingServer const& server = servers.web(lie.tls);
        Target const target = lyingWeb(server, name, lie.behaviour, lie.met, lie.tls);
#endif
        Scenario scenario{lie.behaviour,
                          [&](Stage const& stage) { return lie.run(stage, server); }};
        scenario.isReading = lie.result == Lie::Result::Right;
        scenario.mustFail = lie.result == Lie::Result::Refused;
        RunResult const run = runAndCount(target, scenario, lieOf(lie.kind), result);
        if (run.counts.applied == 0) {
            result.findings.push_back(name + ", " + lie.behaviour + ": was not met");
        }
    }
}

} // namespace remote_faults
