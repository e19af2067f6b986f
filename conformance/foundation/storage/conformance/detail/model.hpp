#pragma once

#include <foundation/storage/conformance/detail/model_step.hpp>

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace foundation::storage::conformance::detail {

/// What a storage is to be: folders and files by name, and open streams. For one thread.
class Model {
  public:
    /// Whether a step says nothing: what it would do is not told of providers in general.
    bool leavesOut(Step const& step) const;
    /// Does a step, and says what it gives, in the words of StepRunner::run().
    std::string run(Step const& step);

  private:
    struct Node {
        bool isFolder = false;
        bool isReadOnly = false;
        std::string bytes{};
        std::map<std::string, std::shared_ptr<Node>> children{};
    };
    using NodePtr = std::shared_ptr<Node>;
    struct Stream {
        NodePtr file;
        StepKind opening; ///< as which it was opened
        bool appends = false;
        std::size_t position = 0;
        std::string failure{}; ///< what it goes on answering
    };

    NodePtr find(std::string const& path) const;
    /// The folder that an item of this path is in; null where there is none.
    NodePtr folderOf(std::string const& path) const;
    void put(std::string const& path, NodePtr node);
    void take(std::string const& path);

    std::string create(Step const& step);
    std::string createChain(Step const& step);
    std::string remove(Step const& step);
    std::string copyOrMove(Step const& step);
    std::string moveFolder(Step const& step);
    std::string write(Step const& step);
    std::string replace(Step const& step);
    std::string ask(Step const& step) const;
    std::string list(Step const& step) const;
    std::string open(Step const& step);
    std::string use(Step const& step);
    /// The file to write, made where the step may make it; what is refused otherwise.
    NodePtr fileToWrite(Step const& step, std::string& refusal);

    NodePtr root_ = std::make_shared<Node>(Node{true});
    std::array<std::optional<Stream>, streamSlots> streams_;
};

} // namespace foundation::storage::conformance::detail
