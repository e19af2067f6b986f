#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/msg_svc/eventmgr/base_event.hpp>
#include <foundation/msg_svc/eventmgr/connection.hpp>
#include <foundation/msg_svc/eventmgr/deliver_mode.hpp>
#include <foundation/msg_svc/eventmgr/stack_trace.hpp>

#include <boost/shared_ptr.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace foundation::msg_svc::eventmgr {

/// Brings events to their subscribers, who are found by the name of a type and, where they asked
/// for one, a tag. An event reaches the subscribers of its own type and of those that it is derived
/// from, each once, in the order in which they subscribed.
///
/// Safe on any number of threads. Handlers run without a lock held, several at once where several
/// threads notify; they may notify, subscribe and disconnect, themselves too.
class FOUNDATION_EXPORT EventMgr {
  public:
    /// What becomes of an exception that a handler let out: it, and where the handler subscribed.
    using ExceptionProcessor = std::function<void(std::exception_ptr const&, StackTrace const&)>;

    /// Exceptions of handlers go to the diagnostic log, as "foundation::msg_svc::eventmgr".
    EventMgr();
    /// REQUIRES: a processor. It may be called on many threads at once; what it throws is dropped.
    explicit EventMgr(ExceptionProcessor processor);
    EventMgr(EventMgr const&) = delete;
    EventMgr& operator=(EventMgr const&) = delete;
    /// Delivers what is queued before it returns, with what handlers queue meanwhile. A handler may
    /// destroy the event manager: those behind it still hear of its event; where that is a queued
    /// one, the others that are queued are dropped. REQUIRES: handlers aside that this waits for,
    /// nobody uses it any more.
    ~EventMgr();

    /// Delivers a clone of the event. No exception of a handler arrives here. Where a queued event
    /// cannot be delivered, the processor is told with an empty trace.
    template<class Event>
    void notify(Event const& event, DeliverMode mode) {
        deliver(boost::shared_ptr<BaseEvent>(event.clone()), mode);
    }

    /// Calls `handler` with each event of the type, until the connection is disconnected.
    template<class Event, class Handler>
    [[nodiscard]] std::unique_ptr<Connection> subscribe(Handler handler) {
        return doSubscribe(Event::EventType(), {std::nullopt}, wrapped<Event>(std::move(handler)));
    }
    /// The same with the events alone that carry the tag.
    template<class Event, class Handler>
    [[nodiscard]] std::unique_ptr<Connection> subscribe(fl::i18n::ustring const& tag,
                                                        Handler handler) {
        return doSubscribe(Event::EventType(), {tag}, wrapped<Event>(std::move(handler)));
    }
    /// The same with the events that carry any of the tags, each event once.
    template<class Event, class Handler>
    [[nodiscard]] std::unique_ptr<Connection> subscribe(std::vector<fl::i18n::ustring> const& tags,
                                                        Handler handler) {
        return doSubscribe(Event::EventType(), Tags(tags.begin(), tags.end()),
                           wrapped<Event>(std::move(handler)));
    }

    /// Hands the exception in flight to the processor. For use in a catch block.
    void processExceptionFromEventHandler(StackTrace const& subscriber) const noexcept;
    static StackTrace GetStackTrace() { return StackTrace::current(); }

  private:
    using BaseHandler = std::function<void(BaseEvent const&)>;
    /// No tag stands for every tag and none.
    using Tags = std::vector<std::optional<fl::i18n::ustring>>;
    struct Impl;

    /// Outlives the event manager where a handler still runs.
    using SharedProcessor = std::shared_ptr<ExceptionProcessor const>;
    static void process(ExceptionProcessor const& processor, StackTrace const& subscriber) noexcept;
    SharedProcessor processor() const;

    template<class Event, class Handler>
    BaseHandler wrapped(Handler handler) const {
        return [handler = std::move(handler), subscriber = GetStackTrace(),
                sink = processor()](BaseEvent const& event) {
            try {
                if (!event.isKindOf(Event::EventType())) {
                    throw std::bad_cast();
                }
                handler(static_cast<Event const&>(event));
            } catch (...) {
                process(*sink, subscriber);
            }
        };
    }

    void deliver(boost::shared_ptr<BaseEvent> const& event, DeliverMode mode);
    std::unique_ptr<Connection> doSubscribe(std::string const& typeName, Tags tags,
                                            BaseHandler handler);

    std::unique_ptr<Impl> impl_;
};

} // namespace foundation::msg_svc::eventmgr
