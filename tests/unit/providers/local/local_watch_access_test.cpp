#include "watch_fixture.hpp"

#include "child_process.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {

namespace {

/// A process with the rights that this one has now, which does one thing when it is told to.
class Owner {
  public:
    explicit Owner(std::function<bool()> const& work) {
        if (::pipe(gate_) != 0) {
            return;
        }
        process_ = ::fork();
        if (process_ == 0) {
            ::close(gate_[1]);
            char byte = 0;
            bool const isTold = ::read(gate_[0], &byte, 1) == 1;
            ::_exit(isTold && work() ? 0 : 1);
        }
        ::close(gate_[0]);
    }
    Owner(Owner const&) = delete;
    Owner& operator=(Owner const&) = delete;
    ~Owner() { ::close(gate_[1]); }

    bool act() const {
        int status = -1;
        return process_ > 0 && ::write(gate_[1], "x", 1) == 1 &&
               ::waitpid(process_, &status, 0) == process_ && WIFEXITED(status) &&
               WEXITSTATUS(status) == 0;
    }

  private:
    int gate_[2] = {-1, -1};
    pid_t process_ = -1;
};

/// Folders that may not be read for a while.
class LocalWatchAccess : public LocalWatchTest {
  protected:
    LocalWatchAccess() {
        makeFolder("p");
        makeFolder("p/f");
        allow("", 0777);
        allow("p", 0777);
        allow("p/f", 0777);
    }
    bool allow(std::string const& name, mode_t mode) const {
        return ::chmod(path(name).c_str(), mode) == 0;
    }
    bool isTold(std::string const& line) const {
        for (auto const& told : log_.lines()) {
            if (told == line) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(LocalWatchAccess, AFolderThatIsMadeAgainClosedIsFoundWhenItIsOpened) {
    for (bool const isTree : {false, true}) {
        EXPECT_EQ(inChild([&]() -> std::string {
                      Owner const remaker([&] {
                          return ::rmdir(path("p/f").c_str()) == 0 &&
                                 ::mkdir(path("p/f").c_str(), 0700) == 0;
                      });
                      Owner const opener([&] { return allow("p/f", 0777); });
                      becomeUnprivileged();
                      publish("p", namesOnly);
                      isTree ? publishTree("p/f", namesOnly) : publish("p/f", namesOnly);
                      if (!remaker.act() || !log_.waitForEntry(Kind::Removed, "p/f")) {
                          return "not removed";
                      }
                      settle("p"); // by now it has been found closed
                      log_.clear();
                      if (!opener.act() || !log_.waitForEntry(Kind::Created, "p/f")) {
                          return "not found";
                      }
                      makeFile("p/f/file");
                      return log_.waitForEntry(Kind::Created, "p/f/file") ? "watched" : "unseen";
                  }),
                  "watched")
            << isTree;
        allow("p/f", 0777);
        remove("p/f/file");
        remove("p/.marker-1");
    }
}

TEST_F(LocalWatchAccess, AFolderThatIsClosedWhileTheWayToItChangesGoesOn) {
    EXPECT_EQ(inChild([&]() -> std::string {
                  Owner const opener([&] { return allow("p/f", 0777); });
                  Owner const closer([&] { return allow("p/f", 0); });
                  becomeUnprivileged();
                  publish("p/f", namesOnly);
                  hold();
                  bool const isMoved = closer.act() &&
                                       ::rename(path("p").c_str(), path("q").c_str()) == 0 &&
                                       ::rename(path("q").c_str(), path("p").c_str()) == 0;
                  release();
                  publish("w", {}); // what comes behind the lock has seen what came before it
                  if (!isMoved || !opener.act()) {
                      return "not done";
                  }
                  makeFile("p/f/file");
                  if (!log_.waitForEntry(Kind::Created, "p/f/file")) {
                      return "unseen";
                  }
                  return isTold("- folder p/f") ? "removed" : "watched";
              }),
              "watched");
}

TEST_F(LocalWatchAccess, AnotherFolderInItsPlaceIsNotTakenForItThoughClosed) {
    EXPECT_EQ(inChild([&]() -> std::string {
                  Owner const closer([&] {
                      return ::mkdir(path("r").c_str(), 0777) == 0 && allow("r", 0777) &&
                             ::mkdir(path("r/f").c_str(), 0700) == 0;
                  });
                  Owner const opener([&] { return allow("p/f", 0777); });
                  becomeUnprivileged();
                  publish("p/f", namesOnly);
                  if (!closer.act() || ::rename(path("p").c_str(), path("q").c_str()) != 0 ||
                      ::rename(path("r").c_str(), path("p").c_str()) != 0 ||
                      !log_.waitForEntry(Kind::Removed, "p/f")) {
                      return "not removed";
                  }
                  makeFile("q/f/elsewhere");
                  if (!opener.act() || !log_.waitForEntry(Kind::Created, "p/f")) {
                      return "not found";
                  }
                  makeFile("p/f/file");
                  if (!log_.waitForEntry(Kind::Created, "p/f/file")) {
                      return "unseen";
                  }
                  return isTold("+ file p/f/elsewhere") ? "taken for it" : "watched";
              }),
              "watched");
}

} // namespace

} // namespace foundation::storage::provider::local::test
