#pragma once

#include <foundation/storage/conformance/detail/extended.hpp>

#include <memory>
#include <type_traits>
#include <utility>

namespace foundation::storage::conformance {

/// Puts a decorator around a provider: `decorate<CallCounter>(provider)`. Further arguments go to
/// the decorator's constructor, behind the provider.
///
/// Extensions are found by a cast, so what is made is of a class derived from `Decorator` that has
/// exactly those of extensions::ILinks, IReplacingStreams, IFolderAttributes, ISmallFileCopies and
/// IFlushableFilesystem that the inner provider has. Throws std::invalid_argument where there is no
/// provider.
template<class Decorator, class... Arguments>
std::shared_ptr<Decorator> decorate(std::shared_ptr<provider::IProvider> inner,
                                    Arguments&&... arguments) {
    using namespace provider::extensions;
    provider::IProvider const* const asked = inner.get();
    auto const make = [&]<class Base>(std::type_identity<Base>) -> std::shared_ptr<Decorator> {
        return std::make_shared<detail::Complete<Base>>(std::move(inner),
                                                        std::forward<Arguments>(arguments)...);
    };
    auto const flushing = [&]<class Base>(std::type_identity<Base> plain) {
        return dynamic_cast<IFlushableFilesystem const*>(asked)
                   ? make(std::type_identity<detail::WithFlushing<Base>>())
                   : make(plain);
    };
    auto const copying = [&]<class Base>(std::type_identity<Base> plain) {
        return dynamic_cast<ISmallFileCopies const*>(asked)
                   ? flushing(std::type_identity<detail::WithSmallFileCopies<Base>>())
                   : flushing(plain);
    };
    auto const folders = [&]<class Base>(std::type_identity<Base> plain) {
        return dynamic_cast<IFolderAttributes const*>(asked)
                   ? copying(std::type_identity<detail::WithFolderAttributes<Base>>())
                   : copying(plain);
    };
    auto const replacing = [&]<class Base>(std::type_identity<Base> plain) {
        return dynamic_cast<IReplacingStreams const*>(asked)
                   ? folders(std::type_identity<detail::WithReplacingStreams<Base>>())
                   : folders(plain);
    };
    std::type_identity<Decorator> const plain;
    return dynamic_cast<ILinks const*>(asked)
               ? replacing(std::type_identity<detail::WithLinks<Decorator>>())
               : replacing(plain);
}

} // namespace foundation::storage::conformance
