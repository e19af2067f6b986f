#pragma once

#include <foundation/storage/conformance/contract.hpp>

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <string>
#include <utility>

namespace foundation::storage::conformance {

namespace detail {

/// One case of a contract as a test.
class ContractTest : public ::testing::Test {
  public:
    ContractTest(std::shared_ptr<Contract const> contract, std::string caseName)
        : contract_(std::move(contract)),
          caseName_(std::move(caseName)) {}

    void TestBody() override {
        CaseReport const report = checkCase(*contract_, caseName_);
        for (std::string const& remark : report.remarks) {
            if (report.outcome == Outcome::Broken) {
                ADD_FAILURE() << remark;
            } else {
                std::cout << report.outcome << ": " << remark << '\n';
            }
        }
    }

  private:
    std::shared_ptr<Contract const> const contract_;
    std::string const caseName_;
};

} // namespace detail

/// Registers a test for each case that applies, as `NAME/Family.WhatIsPromised`. To be called
/// before the tests run; at namespace scope one line does:
///
///     int const tests = registerContractTests(contract);
///
/// Returns the number of tests. Link GoogleTest; this header alone needs it.
inline int registerContractTests(Contract contract) {
    auto const shared = std::make_shared<Contract const>(std::move(contract));
    int count = 0;
    for (std::string const& name : allCases()) {
        if (whyLeftOut(*shared, name)) {
            continue;
        }
        std::size_t const dot = name.find('.');
        ::testing::RegisterTest((shared->name + '/' + name.substr(0, dot)).c_str(),
                                name.substr(dot + 1).c_str(), nullptr, nullptr, __FILE__, __LINE__,
                                [shared, name]() -> ::testing::Test* {
                                    return new detail::ContractTest(shared, name);
                                });
        ++count;
    }
    return count;
}

} // namespace foundation::storage::conformance
