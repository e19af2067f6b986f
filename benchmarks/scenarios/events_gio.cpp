#include "events_watching.hpp"

#include <future>
#include <gio/gio.h>
#include <stdexcept>
#include <thread>
#include <utility>

namespace bench {

namespace {

class GioWatching final : public Watching {
  public:
    GioWatching(std::string const& folder, Change change, Told told)
        : told_(std::move(told)),
          wanted_(change == Change::Created ? G_FILE_MONITOR_EVENT_CREATED
                                            : G_FILE_MONITOR_EVENT_CHANGED),
          context_(g_main_context_new()),
          loop_(g_main_loop_new(context_, FALSE)) {
        std::promise<void> watches;
        std::future<void> const begun = watches.get_future();
        thread_ = std::thread([&] { run(folder, std::move(watches)); });
        begun.wait();
        if (!isWatching_) {
            thread_.join();
            throw std::runtime_error("GIO does not watch " + folder);
        }
    }
    GioWatching(GioWatching const&) = delete;
    GioWatching& operator=(GioWatching const&) = delete;
    ~GioWatching() override {
        // From within the loop: a loop that has not begun yet would not notice.
        GSource* const end = g_idle_source_new();
        g_source_set_callback(
            end,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(loop));
                return G_SOURCE_REMOVE;
            },
            loop_, nullptr);
        g_source_attach(end, context_);
        g_source_unref(end);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }

  private:
    void run(std::string const& folder, std::promise<void> watches) {
        g_main_context_push_thread_default(context_);
        GFile* const file = g_file_new_for_path(folder.c_str());
        GFileMonitor* const monitor =
            g_file_monitor_directory(file, G_FILE_MONITOR_NONE, nullptr, nullptr);
        isWatching_ = monitor != nullptr;
        if (isWatching_) {
            g_file_monitor_set_rate_limit(monitor, 0);
            g_signal_connect(monitor, "changed", G_CALLBACK(&GioWatching::take), this);
        }
        watches.set_value();
        if (isWatching_) {
            g_main_loop_run(loop_);
            g_object_unref(monitor);
        }
        g_object_unref(file);
        g_main_context_pop_thread_default(context_);
    }
    static void take(GFileMonitor*, GFile*, GFile*, GFileMonitorEvent event, gpointer self) {
        auto const& watching = *static_cast<GioWatching*>(self);
        if (event == watching.wanted_) {
            watching.told_();
        }
    }

    Told told_;
    GFileMonitorEvent wanted_;
    GMainContext* context_;
    GMainLoop* loop_;
    bool isWatching_ = false;
    std::thread thread_;
};

} // namespace

std::unique_ptr<Watching> watchByGio(std::string const& folder, Change change, Told told) {
    return std::make_unique<GioWatching>(folder, change, std::move(told));
}

} // namespace bench
