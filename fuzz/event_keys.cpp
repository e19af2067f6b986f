// What events are matched on: tags of kinds and locations, and the names of types. Who hears of an
// event is held against the plainest form of the rule.

#include "consumed_bytes.hpp"
#include "require.hpp"

#include <foundation/msg_svc/eventmgr/event_mgr.hpp>
#include <foundation/storage/events/event.hpp>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using namespace foundation::msg_svc::eventmgr;
using fl::i18n::ustring;
using foundation::storage::events::createEventType;
using foundation::storage::events::EntryType;
using foundation::storage::events::Event;
using foundation::storage::events::Kind;
using foundation::storage::events::SimpleEventData;

namespace {

constexpr std::size_t mostSubscribers = 12;

/// A chain of `Depth` types, each derived from the one before it.
template<int Depth>
class Chained;

template<int Depth>
struct BaseOf {
    using Type = Chained<Depth - 1>;
};
template<>
struct BaseOf<0> {
    using Type = Event;
};

template<int Depth>
class Chained : public BaseOf<Depth>::Type {
  public:
    using EventBase = typename BaseOf<Depth>::Type;
    using EventBase::EventBase;

    static std::string const& EventType() {
        static std::string const name = "chained " + std::to_string(Depth);
        return name;
    }
    BaseEvent* clone() const override { return new Chained(*this); }
    SimpleEventData getSimpleEventData() const override {
        return SimpleEventData(Kind::Created, ustring(), EntryType::File);
    }
};

/// The names of the types from the most derived on.
std::vector<std::string> const typeNames{
    "chained 2",
    "chained 1",
    "chained 0",
    "foundation::storage::events::Event",
    "foundation::msg_svc::eventmgr::BaseEvent",
};

Kind kind(ConsumedBytes& data) {
    return Kind(data.number(4));
}

/// Texts that are alike, to be taken for each other.
ustring location(ConsumedBytes& data) {
    constexpr std::u16string_view alphabet(u"0 1:/a\0\xDC80", 8);
    ustring out;
    for (char const c : data.text(12)) {
        out += alphabet[static_cast<unsigned char>(c) % alphabet.size()];
    }
    return out;
}

struct Subscriber {
    std::size_t type; ///< in typeNames
    std::optional<std::vector<ustring>> tags;
    std::size_t heard = 0;
    std::unique_ptr<Connection> connection;
};

template<class Type>
void subscribe(EventMgr& manager, Subscriber& subscriber) {
    auto const handler = [&subscriber](Type const&) { ++subscriber.heard; };
    subscriber.connection = subscriber.tags ? manager.subscribe<Type>(*subscriber.tags, handler)
                                            : manager.subscribe<Type>(handler);
}

void subscribeByName(EventMgr& manager, Subscriber& subscriber) {
    switch (subscriber.type) {
    case 0:
        return subscribe<Chained<2>>(manager, subscriber);
    case 1:
        return subscribe<Chained<1>>(manager, subscriber);
    case 2:
        return subscribe<Chained<0>>(manager, subscriber);
    case 3:
        return subscribe<Event>(manager, subscriber);
    default:
        return subscribe<BaseEvent>(manager, subscriber);
    }
}

template<int Depth>
void notify(EventMgr& manager, std::vector<ustring> const& tags) {
    auto const type = boost::make_shared<detail::DerivedTypeInformation<Chained<Depth>>>();
    type->addUserTags(tags);
    constexpr std::size_t first = 2 - Depth;
    require(type->getTypeCount() == typeNames.size() - first);
    for (std::size_t i = 0; i < type->getTypeCount(); ++i) {
        require(type->getTypeName(i) == typeNames[first + i]);
    }
    try {
        type->getTypeName(type->getTypeCount());
        require(false);
    } catch (std::out_of_range const&) {
    }
    Chained<Depth> const event(type);
    for (std::size_t i = 0; i < typeNames.size(); ++i) {
        require(event.isKindOf(typeNames[i]) == (i >= first));
    }
    manager.notify(event, DeliverMode::Immediate);
}

std::vector<ustring> tags(ConsumedBytes& data) {
    std::vector<ustring> out(data.number(3));
    std::generate(out.begin(), out.end(), [&] {
        Kind const what = kind(data);
        return createEventType(what, location(data));
    });
    return out;
}

bool hears(Subscriber const& subscriber, std::size_t type, std::vector<ustring> const& tags) {
    bool const ofType = subscriber.type >= type;
    return ofType && (!subscriber.tags ||
                      std::find_first_of(tags.begin(), tags.end(), subscriber.tags->begin(),
                                         subscriber.tags->end()) != tags.end());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
    ConsumedBytes data(bytes, size);
    {
        Kind const kindA = kind(data);
        Kind const kindB = kind(data);
        ustring const a = location(data);
        ustring const b = location(data);
        require((createEventType(kindA, a) == createEventType(kindB, b)) ==
                (kindA == kindB && a == b));
    }

    EventMgr manager([](std::exception_ptr const&, StackTrace const&) { require(false); });
    std::vector<Subscriber> subscribers;
    subscribers.reserve(mostSubscribers); // handlers point to them
    while (!data.empty()) {
        if (subscribers.size() < mostSubscribers && data.flag()) {
            Subscriber& added = subscribers.emplace_back();
            added.type = data.number(4);
            if (data.flag()) {
                added.tags = tags(data);
            }
            subscribeByName(manager, added);
            continue;
        }
        if (!subscribers.empty() && data.flag()) {
            Subscriber& gone = subscribers[data.byte() % subscribers.size()];
            gone.connection->disconnect();
            gone.type = 0;
            gone.tags = std::vector<ustring>(); // hears nothing any more
            continue;
        }
        std::vector<std::size_t> expected;
        expected.reserve(subscribers.size());
        std::size_t const type = data.number(2);
        std::vector<ustring> const tagged = tags(data);
        for (Subscriber const& subscriber : subscribers) {
            expected.push_back(subscriber.heard + (hears(subscriber, type, tagged) ? 1 : 0));
        }
        type == 0   ? notify<2>(manager, tagged)
        : type == 1 ? notify<1>(manager, tagged)
                    : notify<0>(manager, tagged);
        for (std::size_t i = 0; i < subscribers.size(); ++i) {
            require(subscribers[i].heard == expected[i]);
        }
    }
    for (Subscriber const& subscriber : subscribers) {
        subscriber.connection->disconnect();
    }
    return 0;
}
