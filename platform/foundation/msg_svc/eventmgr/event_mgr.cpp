#include <foundation/msg_svc/eventmgr/event_mgr.hpp>

#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/msg_svc/eventmgr/detail/delivery_queue.hpp>
#include <foundation/msg_svc/eventmgr/detail/subscription.hpp>
#include <foundation/msg_svc/eventmgr/detail/subscription_table.hpp>

#include <boost/exception/diagnostic_information.hpp>

#include <algorithm>
#include <atomic>
#include <sstream>

namespace foundation::msg_svc::eventmgr {

using detail::DeliveryQueue;
using detail::Subscription;
using detail::SubscriptionTable;

namespace {

constexpr int exceptionLevel = 16;

void logException(std::exception_ptr const& exception, StackTrace const& subscriber) {
    static log::diagnostic_logger const logger("foundation::msg_svc::eventmgr");
    if (!logger.isEnabled(exceptionLevel)) {
        return;
    }
    std::ostringstream text;
    try {
        std::rethrow_exception(exception);
    } catch (...) {
        text << "Exception from an event handler: "
             << boost::current_exception_diagnostic_information();
    }
    text << "\nsubscribed at:\n" << subscriber;
    logger.write(exceptionLevel, text.str());
}

void deliverTo(SubscriptionTable const& table, BaseEvent const& event) {
    for (auto const& subscription : table.find(event.getTypeInformation())) {
        subscription->run(event);
    }
}

using Tags = std::vector<SubscriptionTable::Tag>;

class TableConnection : public Connection {
  public:
    TableConnection(std::weak_ptr<SubscriptionTable> table, std::string typeName, Tags tags,
                    std::shared_ptr<Subscription> subscription)
        : table_(std::move(table)),
          typeName_(std::move(typeName)),
          tags_(std::move(tags)),
          subscription_(std::move(subscription)) {}

    void add(SubscriptionTable& table) const {
        for (SubscriptionTable::Tag const& tag : tags_) {
            table.add(typeName_, tag, subscription_);
        }
    }
    void disconnect() override {
        if (auto const table = table_.lock()) {
            for (SubscriptionTable::Tag const& tag : tags_) {
                table->remove(typeName_, tag, *subscription_);
            }
        }
        subscription_->disconnect();
    }

  private:
    std::weak_ptr<SubscriptionTable> const table_;
    std::string const typeName_;
    Tags const tags_;
    std::shared_ptr<Subscription> const subscription_;
};

} // namespace

struct EventMgr::Impl {
    explicit Impl(ExceptionProcessor made)
        : processor(std::make_shared<ExceptionProcessor const>(std::move(made))),
          table(std::make_shared<SubscriptionTable>()),
          queue([known = table, sink = processor](BaseEvent const& event) {
              try {
                  deliverTo(*known, event);
              } catch (...) {
                  // No handler threw: finding them did. Nobody waits for an answer.
                  process(*sink, StackTrace());
              }
          }) {}

    SharedProcessor const processor;
    std::shared_ptr<SubscriptionTable> const table;
    std::atomic<std::uint64_t> subscribed = 0;
    DeliveryQueue queue;
};

EventMgr::EventMgr() : EventMgr(&logException) {}

EventMgr::EventMgr(ExceptionProcessor processor)
    : impl_(std::make_unique<Impl>(std::move(processor))) {}

EventMgr::~EventMgr() {
    impl_->queue.end(); // its handlers may still notify
}

void EventMgr::deliver(boost::shared_ptr<BaseEvent> const& event, DeliverMode mode) {
    if (mode == DeliverMode::Queued) {
        impl_->queue.push(event);
    } else {
        // A handler may let go of the last owner of the event manager.
        deliverTo(*std::shared_ptr(impl_->table), *event);
    }
}

std::unique_ptr<Connection> EventMgr::doSubscribe(std::string const& typeName, Tags tags,
                                                  BaseHandler handler) {
    // The table takes each tag of a subscription once, as it brings an event once for each.
    std::sort(tags.begin(), tags.end());
    tags.erase(std::unique(tags.begin(), tags.end()), tags.end());
    auto connection = std::make_unique<TableConnection>(
        impl_->table, typeName, std::move(tags),
        std::make_shared<Subscription>(impl_->subscribed++, std::move(handler)));
    try {
        connection->add(*impl_->table);
    } catch (...) {
        connection->disconnect();
        throw;
    }
    return connection;
}

EventMgr::SharedProcessor EventMgr::processor() const {
    return impl_->processor;
}

void EventMgr::processExceptionFromEventHandler(StackTrace const& subscriber) const noexcept {
    process(*impl_->processor, subscriber);
}

void EventMgr::process(ExceptionProcessor const& processor, StackTrace const& subscriber) noexcept {
    try {
        processor(std::current_exception(), subscriber);
    } catch (...) {
        return; // there is nobody left to tell
    }
}

} // namespace foundation::msg_svc::eventmgr
