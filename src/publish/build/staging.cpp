#include "publish/build/staging.h"

#include <string>
#include <system_error>

#include "publish/build/new_file.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

namespace {

constexpr char kLock[] = "lock";

}  // namespace

Staging::Staging(const fs::path& output)
    : folder_(output / kFolder), replacement_(folder_, output) {
  std::error_code error;
  fs::create_directories(folder_, error);
  if (error) FailToWrite(folder_, error);
  lock_ = std::make_unique<platform::FileLock>((folder_ / kLock).native());
  using Outcome = platform::FileLock::Outcome;
  if (lock_->outcome() == Outcome::kTaken) {
    throw PublishError(output.native() + ": another build is running");
  }
  if (lock_->outcome() == Outcome::kFailed) {
    FailToWrite(folder_, "its lock can't be created");
  }
  leftover_ = replacement_.Recover();
  RemoveContents();
}

Staging::~Staging() {
  if (replacement_.IsPending()) return;  // for RecoverPublication
  RemoveContents();
  lock_.reset();
  std::error_code ignored;
  fs::remove(folder_, ignored);
}

fs::path Staging::At(std::size_t number) const { return folder_ / std::to_string(number); }

void Staging::Publish(const std::vector<Placement>& placements) const {
  replacement_.Run(placements);
}

// The lock stays.
void Staging::RemoveContents() const {
  std::error_code error;
  std::vector<fs::path> contents;
  for (fs::directory_iterator at(folder_, error); !error && at != fs::end(at);
       at.increment(error)) {
    if (at->path().filename() != kLock) contents.push_back(at->path());
  }
  for (const fs::path& path : contents) fs::remove_all(path, error);
}

Leftover RecoverPublication(const fs::path& output) {
  std::error_code error;
  if (!fs::exists(output / Staging::kFolder, error)) return Leftover::kNone;
  return Staging(output).leftover();
}

}  // namespace velmora::publish
