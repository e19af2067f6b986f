#pragma once

#include "lying_target.hpp"
#include "scenario.hpp"
#include "sweep.hpp"

#include <string>
#include <vector>

namespace remote_faults {

/// Something wrong that a server answers, and an operation that meets it.
struct Lie {
    std::string kind; ///< a line of the table
    /// Of the server: the first name of a path, or a bucket.
    std::string behaviour;
    /// Is in those lines of the server's log that stand for requests that are lied to.
    std::string met;
    /// What has to come of it: the right result, which can be had all the same, or a failure.
    enum class Result { Right, Refused, RightOrRefused } result;
    std::function<std::optional<std::string>(Stage const&, LyingServer const&)> run;
    LyingServer::Tls tls = LyingServer::Tls::No;
};

std::vector<Lie> liesOfTheWeb();
std::vector<Lie> liesInWebDav();
std::vector<Lie> liesOfAStore();
/// Of certificates; `run` is refused.
std::vector<Lie> liesOfCertificates(
    std::string const& behaviour,
    std::function<std::optional<std::string>(Stage const&, LyingServer const&)> const& run);

/// Has the target lied to, by servers that are started for it.
void sweepLies(std::string const& target, Extent extent, SweepResult& result);
/// What they are called.
std::vector<std::string> kindsOfLies(std::string const& target);
/// Of the kinds that others have and this target has not: "KIND: WHY".
std::vector<std::string> liesWithoutSense(std::string const& target);

} // namespace remote_faults
