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
/// IFlushableFilesystem that the inner provider has and `Decorator::handsOn` does not keep back.
/// Throws std::invalid_argument where there is no
/// provider.
template<class Decorator, class... Arguments>
std::shared_ptr<Decorator> decorate(std::shared_ptr<provider::IProvider> inner,
                                    Arguments&&... arguments) {
    using namespace provider::extensions;
    auto const isHandedOn = [asked = inner.get()]<class Extension>(std::type_identity<Extension>) {
        return Decorator::template handsOn<Extension> &&
               dynamic_cast<Extension const*>(asked) != nullptr;
    };
    auto const make = [&]<class Base>(std::type_identity<Base>) -> std::shared_ptr<Decorator> {
        return std::make_shared<detail::Complete<Base>>(std::move(inner),
                                                        std::forward<Arguments>(arguments)...);
    };
    auto const flushing = [&]<class Base>(std::type_identity<Base> plain) {
        return isHandedOn(std::type_identity<IFlushableFilesystem>())
                   ? make(std::type_identity<detail::WithFlushing<Base>>())
                   : make(plain);
    };
    auto const copying = [&]<class Base>(std::type_identity<Base> plain) {
        return isHandedOn(std::type_identity<ISmallFileCopies>())
                   ? flushing(std::type_identity<detail::WithSmallFileCopies<Base>>())
                   : flushing(plain);
    };
    auto const folders = [&]<class Base>(std::type_identity<Base> plain) {
        return isHandedOn(std::type_identity<IFolderAttributes>())
                   ? copying(std::type_identity<detail::WithFolderAttributes<Base>>())
                   : copying(plain);
    };
    auto const replacing = [&]<class Base>(std::type_identity<Base> plain) {
        return isHandedOn(std::type_identity<IReplacingStreams>())
                   ? folders(std::type_identity<detail::WithReplacingStreams<Base>>())
                   : folders(plain);
    };
    std::type_identity<Decorator> const plain;
    return isHandedOn(std::type_identity<ILinks>())
               ? replacing(std::type_identity<detail::WithLinks<Decorator>>())
               : replacing(plain);
}

} // namespace foundation::storage::conformance
