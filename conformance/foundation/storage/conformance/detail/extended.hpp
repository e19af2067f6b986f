#pragma once

#include <foundation/storage/conformance/provider_decorator.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_flushable_filesystem.hpp>
#include <foundation/storage/provider/extensions/i_folder_attributes.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/provider/extensions/i_replacing_streams.hpp>
#include <foundation/storage/provider/extensions/i_small_file_copies.hpp>

#include <memory>
#include <span>
#include <utility>

namespace foundation::storage::conformance::detail {

/// A decorator that can be made: opens the protected constructor.
template<class Base>
class Complete final : public Base {
  public:
    template<class... Arguments>
    explicit Complete(Arguments&&... arguments) : Base(std::forward<Arguments>(arguments)...) {}
};

/// A decorator of a provider with links.
template<class Base>
class WithLinks : public Base, public provider::extensions::ILinks {
  public:
    provider::ustring readLink(provider::StorageIRI const& location) const override {
        this->before(Operation::ReadLink, &location);
        return links_.readLink(location);
    }
    void createLink(provider::StorageIRI const& location,
                    provider::ustring const& target) override {
        this->before(Operation::CreateLink, &location);
        links_.createLink(location, target);
    }

  protected:
    template<class... Arguments>
    explicit WithLinks(Arguments&&... arguments) : Base(std::forward<Arguments>(arguments)...) {}

  private:
    provider::extensions::ILinks& links_ =
        dynamic_cast<provider::extensions::ILinks&>(*this->getInner());
};

/// A decorator of a provider that replaces files as a whole.
template<class Base>
class WithReplacingStreams : public Base, public provider::extensions::IReplacingStreams {
  public:
    std::unique_ptr<provider::ByteStream>
    openReplacement(provider::StorageIRI const& location,
                    provider::ReplacementPolicy const& policy) override {
        this->before(Operation::OpenReplacement, &location);
        return this->decorateStream(location, streams_.openReplacement(location, policy),
                                    Base::StreamKind::Replacement);
    }

  protected:
    template<class... Arguments>
    explicit WithReplacingStreams(Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...) {}

  private:
    provider::extensions::IReplacingStreams& streams_ =
        dynamic_cast<provider::extensions::IReplacingStreams&>(*this->getInner());
};

/// A decorator of a provider whose folders can be given attributes.
template<class Base>
class WithFolderAttributes : public Base, public provider::extensions::IFolderAttributes {
  public:
    void setFolderAttributes(provider::StorageIRI const& location,
                             provider::extensions::FolderAttributeChange const& change) override {
        this->before(Operation::SetFolderAttributes, &location);
        folders_.setFolderAttributes(location, change);
    }

  protected:
    template<class... Arguments>
    explicit WithFolderAttributes(Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...) {}

  private:
    provider::extensions::IFolderAttributes& folders_ =
        dynamic_cast<provider::extensions::IFolderAttributes&>(*this->getInner());
};

/// A decorator of a provider that copies small files of a folder together.
template<class Base>
class WithSmallFileCopies : public Base, public provider::extensions::ISmallFileCopies {
  public:
    /// A failure of the hook leaves all files, as the extension gives no reasons: what it throws of
    /// a provider ends here.
    void copySmallFiles(provider::StorageIRI const& from, provider::StorageIRI const& to,
                        std::span<provider::extensions::SmallFileCopy> files) override {
        try {
            this->before(Operation::CopySmallFiles, &from);
        } catch (provider::Exception const&) {
            return;
        }
        copies_.copySmallFiles(from, to, files);
    }

  protected:
    template<class... Arguments>
    explicit WithSmallFileCopies(Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...) {}

  private:
    provider::extensions::ISmallFileCopies& copies_ =
        dynamic_cast<provider::extensions::ISmallFileCopies&>(*this->getInner());
};

/// A decorator of a provider that keeps changes back.
template<class Base>
class WithFlushing : public Base, public provider::extensions::IFlushableFilesystem {
  public:
    void flushFilesystem() override {
        this->before(Operation::FlushFilesystem, nullptr);
        filesystem_.flushFilesystem();
    }

  protected:
    template<class... Arguments>
    explicit WithFlushing(Arguments&&... arguments) : Base(std::forward<Arguments>(arguments)...) {}

  private:
    provider::extensions::IFlushableFilesystem& filesystem_ =
        dynamic_cast<provider::extensions::IFlushableFilesystem&>(*this->getInner());
};

} // namespace foundation::storage::conformance::detail
