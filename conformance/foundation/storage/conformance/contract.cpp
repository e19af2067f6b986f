#include <foundation/storage/conformance/contract.hpp>

#include <foundation/storage/conformance/detail/case.hpp>
#include <foundation/storage/conformance/detail/text.hpp>
#include <foundation/storage/conformance/detail/trial.hpp>

#include <algorithm>
#include <array>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace foundation::storage::conformance {

namespace {

using detail::Case;

std::array const families = {
    &detail::declarationFamily, &detail::existenceFamily,   &detail::fileFamily,
    &detail::refusalFamily,     &detail::nameFamily,        &detail::folderFamily,
    &detail::streamFamily,      &detail::openingFamily,     &detail::replacementFamily,
    &detail::listingFamily,     &detail::cursorFamily,      &detail::treeFamily,
    &detail::attributeFamily,   &detail::copyFamily,        &detail::moveFamily,
    &detail::linkFamily,        &detail::concurrencyFamily, &detail::changeEventFamily,
    &detail::publicationFamily};

Case const& findCase(std::string_view name) {
    std::size_t const dot = name.find('.');
    for (auto const family : families) {
        if (family().name != name.substr(0, dot)) {
            continue;
        }
        for (Case const& candidate : family().cases) {
            if (candidate.name == name.substr(std::min(dot, name.size() - 1) + 1)) {
                return candidate;
            }
        }
    }
    throw std::out_of_range("there is no case " + std::string(name));
}

std::optional<std::string> whyLeftOut(Contract const& contract, Case const& checked) {
    AbilitySet const lacking = checked.needs & contract.unsupported;
    AbilitySet const offered = checked.refusals - contract.unsupported;
    std::ostringstream text;
    if (!lacking.empty()) {
        text << "needs " << lacking;
    } else if (!offered.empty()) {
        text << "checks the refusal of " << offered;
    } else {
        return std::nullopt;
    }
    return std::move(text).str();
}

void run(Contract const& contract, Case const& checked, std::vector<std::string>& remarks) {
    try {
        detail::Trial trial(contract, contract.makePlace(), remarks);
        checked.check(trial);
    } catch (detail::Abandoned const&) {
        // Its remark is there.
    } catch (...) {
        remarks.push_back("not expected: " + detail::textOfCurrentException());
    }
}

} // namespace

std::ostream& operator<<(std::ostream& out, Outcome outcome) {
    static constexpr std::array names = {"kept", "broken", "deviates", "left out"};
    auto const number = static_cast<std::size_t>(outcome);
    return out << (number < names.size() ? names[number] : "Unhandled Outcome");
}

std::vector<std::string> allCases() {
    std::vector<std::string> names;
    for (auto const family : families) {
        for (Case const& each : family().cases) {
            names.push_back(std::string(family().name) + '.' + each.name);
        }
    }
    return names;
}

std::optional<std::string> whyLeftOut(Contract const& contract, std::string_view caseName) {
    return whyLeftOut(contract, findCase(caseName));
}

CaseReport checkCase(Contract const& contract, std::string_view caseName) {
    Case const& checked = findCase(caseName);
    CaseReport report{std::string(caseName), Outcome::Kept, {}};
    if (auto reason = whyLeftOut(contract, checked)) {
        report.outcome = Outcome::LeftOut;
        report.remarks.push_back(*std::move(reason));
        return report;
    }
    run(contract, checked, report.remarks);
    auto const deviation = contract.deviations.find(caseName);
    if (deviation == contract.deviations.end()) {
        report.outcome = report.remarks.empty() ? Outcome::Kept : Outcome::Broken;
    } else if (report.remarks.empty()) {
        report.outcome = Outcome::Broken;
        report.remarks.push_back("kept, though a deviation is declared: " + deviation->second);
    } else {
        report.outcome = Outcome::Deviates;
        report.remarks.insert(report.remarks.begin(), deviation->second);
    }
    return report;
}

Report checkContract(Contract const& contract) {
    Report report{contract.name, {}};
    for (std::string const& name : allCases()) {
        report.cases.push_back(checkCase(contract, name));
    }
    return report;
}

std::size_t Report::count(Outcome outcome) const {
    return static_cast<std::size_t>(
        std::count_if(cases.begin(), cases.end(),
                      [&](CaseReport const& each) { return each.outcome == outcome; }));
}

std::ostream& operator<<(std::ostream& out, Report const& report) {
    for (CaseReport const& each : report.cases) {
        if (each.outcome == Outcome::Broken || each.outcome == Outcome::Deviates) {
            out << each.name << ' ' << each.outcome << '\n';
            for (std::string const& remark : each.remarks) {
                out << "  " << remark << '\n';
            }
        }
    }
    return out << report.provider << ": " << report.cases.size() << " cases, "
               << report.count(Outcome::Kept) << " kept, " << report.count(Outcome::Broken)
               << " broken, " << report.count(Outcome::Deviates) << " deviate, "
               << report.count(Outcome::LeftOut) << " left out\n";
}

} // namespace foundation::storage::conformance
