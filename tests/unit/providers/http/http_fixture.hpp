#pragma once

#include "lying_server.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <gmock/gmock.h>

#include <memory>
#include <string>

namespace foundation::storage::provider::http::test {

/// Small requests and short pauses, so that files of some thousand bytes take several of them.
inline HttpOptions quickOptions() {
    HttpOptions options;
    options.web.proxy = "";
    options.web.firstPause = std::chrono::milliseconds(1);
    options.web.longestPause = std::chrono::milliseconds(5);
    options.web.operationTimeout = std::chrono::milliseconds(20'000);
    options.attributeLifetime = std::chrono::milliseconds(0);
    options.firstRange = 1000;
    return options;
}

/// For what never comes: then waiting is all that there is to do.
inline HttpOptions impatientOptions() {
    HttpOptions options = quickOptions();
    options.web.stallTimeout = std::chrono::milliseconds(100);
    return options;
}

/// What came of reading a file: its bytes, or why not.
struct Reading {
    std::string bytes;
    int code = -1;
    std::string failure;
};

class Http : public ::testing::Test {
  protected:
    StorageIRI at(std::string const& path) const {
        return StorageIRI(fl::i18n::to_ustring("http://" + server_.authority() + path));
    }
    std::shared_ptr<IProvider> provider(HttpOptions const& options = quickOptions()) const {
        return buildHttpProvider(at("/"), options);
    }
    std::unique_ptr<ByteStream> open(std::string const& path,
                                     HttpOptions const& options = quickOptions()) const {
        return provider(options)->openReadOnlyStream(at(path));
    }
    /// In pieces, from the start to the end.
    Reading read(std::string const& path, HttpOptions const& options = quickOptions()) const {
        Reading reading;
        try {
            auto const stream = open(path, options);
            char buffer[777];
            for (long got = 0; (got = stream->read(buffer, sizeof buffer)) > 0;) {
                reading.bytes.append(buffer, static_cast<std::size_t>(got));
            }
            stream->close();
        } catch (Exception const& failure) {
            reading.code = static_cast<int>(failure.getErrorCode());
            reading.failure = "refused";
        } catch (ByteStreamFailure const& failure) {
            reading.code = static_cast<int>(failure.getErrorCode());
            reading.failure = failure.what();
        }
        return reading;
    }

    LyingServer server_;
};

inline std::string readAt(ByteStream& stream, long position, std::size_t count) {
    std::string bytes(count, '\0');
    stream.seek(position, std::ios_base::beg);
    long const got = stream.read(bytes.data(), static_cast<long>(count));
    bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return bytes;
}

/// The code of what a call throws as provider::Exception; -1 where it throws nothing.
template<class Call>
int codeOf(Call const& call) {
    try {
        call();
    } catch (Exception const& failure) {
        return static_cast<int>(failure.getErrorCode());
    }
    return -1;
}

} // namespace foundation::storage::provider::http::test
