#pragma once

#include "../archive_fixture.hpp"

#include <foundation/storage/provider/tar/tar_factory.hpp>

namespace foundation::storage::provider::tar::test {

using provider::test::archiveItem;
using provider::test::archives;
using provider::test::codeOf;
using provider::test::contentOf;
using provider::test::inside;
using provider::test::localItem;
using provider::test::namesOf;
using provider::test::processorTime;
using provider::test::readAll;
using provider::test::WorkFolder;

/// The archive `name`.tar among those that make_archives.py has made, or of an absolute path.
inline std::shared_ptr<IProvider> open(std::string_view name, TarOptions const& options = {}) {
    return buildTarProvider(archiveItem(name), options);
}

/// What is in it, as that writes it beside each; of one that is refused, the code.
inline std::string view(std::string_view name) {
    std::string text;
    int const code = codeOf([&] { text = provider::test::view(*open(name), name); });
    return code < 0 ? text : '!' + std::to_string(code) + '\n';
}

} // namespace foundation::storage::provider::tar::test
