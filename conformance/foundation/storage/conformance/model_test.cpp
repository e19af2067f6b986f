#include <foundation/storage/conformance/model_test.hpp>

#include <foundation/storage/conformance/detail/model.hpp>
#include <foundation/storage/conformance/detail/step_runner.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <algorithm>
#include <ostream>
#include <utility>
#include <vector>

namespace foundation::storage::conformance {

using detail::Model;
using detail::Step;
using detail::StepMaker;
using detail::StepRunner;

namespace {

struct Difference {
    std::size_t step; ///< the number of it
    std::string given;
    std::string expected;
};

/// The first one in a sequence, in a place of its own.
std::optional<Difference> differenceIn(ModelTest const& test, std::vector<Step> const& steps) {
    StepRunner runner(test.makePlace());
    Model model;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (model.leavesOut(steps[i])) {
            continue;
        }
        std::string expected = model.run(steps[i]);
        std::string given = runner.run(steps[i]);
        if (given != expected) {
            return Difference{i, std::move(given), std::move(expected)};
        }
    }
    return std::nullopt;
}

/// Leaves steps out, ever fewer at a time, as long as there is a difference without them.
std::vector<Step> shortened(ModelTest const& test, std::vector<Step> steps) {
    for (std::size_t chunk = std::max<std::size_t>(steps.size() / 2, 1);;) {
        bool isShorter = false;
        for (std::size_t begin = 0; begin < steps.size();) {
            std::vector<Step> fewer = steps;
            auto const first = fewer.begin() + static_cast<std::ptrdiff_t>(begin);
            fewer.erase(first,
                        first + static_cast<std::ptrdiff_t>(std::min(chunk, steps.size() - begin)));
            if (auto const difference = differenceIn(test, fewer)) {
                fewer.resize(difference->step + 1);
                steps = std::move(fewer);
                isShorter = true;
            } else {
                begin += chunk;
            }
        }
        if (chunk == 1 && !isShorter) {
            return steps;
        }
        chunk = std::max<std::size_t>(chunk / 2, 1);
    }
}

ModelFailure describe(ModelTest const& test, std::vector<Step> const& steps) {
    ModelFailure failure;
    StepRunner runner(test.makePlace());
    Model model;
    for (Step const& step : steps) {
        if (!model.leavesOut(step)) {
            failure.expected = model.run(step);
            failure.given = runner.run(step);
            failure.code += detail::codeOf(step) + " // " + failure.given + '\n';
        }
    }
    return failure;
}

} // namespace

std::ostream& operator<<(std::ostream& out, ModelFailure const& failure) {
    return out << failure.code << "gives: " << failure.given
               << "\nshould give: " << failure.expected << '\n';
}

std::optional<ModelFailure> compareWithModel(ModelTest const& test) {
    AbilitySet unsupported = test.unsupported;
    if (dynamic_cast<provider::extensions::IReplacingStreams*>(test.makePlace().provider.get()) ==
        nullptr) {
        unsupported = unsupported | Ability::Replacement;
    }
    StepMaker maker(test.seed, unsupported, test.hasLastingStreams);
    for (std::size_t done = 0; done < test.operations;) {
        std::vector<Step> steps;
        while (steps.size() < test.operationsInARow && done++ < test.operations) {
            steps.push_back(maker.next());
        }
        if (auto const difference = differenceIn(test, steps)) {
            steps.resize(difference->step + 1);
            return describe(test, shortened(test, std::move(steps)));
        }
    }
    return std::nullopt;
}

} // namespace foundation::storage::conformance
