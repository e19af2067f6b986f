#include <foundation/storage/provider/http/detail/names_in_work.hpp>

#include <foundation/storage/provider/web/failure.hpp>

#include <utility>

namespace foundation::storage::provider::http::detail {

NamesInWork::Hold::Hold(NamesInWork& names, std::string name, web::Deadline const& deadline)
    : names_(names),
      name_(std::move(name)) {
    std::unique_lock lock(names_.mutex_);
    auto const isFree = [&] { return !names_.names_.contains(name_); };
    if (!names_.given_.wait_for(lock, deadline.left(), isFree)) {
        throw web::Failure(ErrorCode::IOError, "another change took longer than the operation may");
    }
    names_.names_.insert(name_);
}

NamesInWork::Hold::~Hold() {
    {
        std::lock_guard const lock(names_.mutex_);
        names_.names_.erase(name_);
    }
    names_.given_.notify_all();
}

} // namespace foundation::storage::provider::http::detail
