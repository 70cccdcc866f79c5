#include "publish/build/staging.h"

#include <algorithm>
#include <string>
#include <system_error>

#include "publish/build/new_file.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

namespace {

constexpr char kLock[] = "lock";

using Outcome = platform::FileLock::Outcome;

bool IsOfTheTool(const std::string& name) {
  const std::size_t digits = std::min(name.find_first_not_of("0123456789"), name.size());
  const std::string rest = name.substr(digits);
  const bool isStaged = digits > 0 && (rest.empty() || rest == ".old");
  return isStaged || name.starts_with("journal") || name.starts_with(".publishing-trial");
}

}  // namespace

Staging::Staging(const fs::path& output)
    : folder_(output / kFolder), replacement_(folder_, output), isOutputNew_(!fs::exists(output)) {
  if (fs::is_symlink(fs::symlink_status(folder_))) FailToWrite(folder_, "it is a link");
  // The holder before may remove the folder between its creation and that of the lock.
  for (int attempt = 0; attempt < 3 && !lock_; ++attempt) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) FailToWrite(folder_, error);
    lock_ = std::make_unique<platform::FileLock>((folder_ / kLock).native());
    if (lock_->outcome() == Outcome::kFailed) lock_.reset();
  }
  if (!lock_) FailToWrite(folder_, "its lock can't be created");
  if (lock_->outcome() == Outcome::kTaken) {
    throw PublishError(output.native() + ": another build is running");
  }
  leftover_ = replacement_.Recover();
  RemoveContents();
}

Staging::~Staging() {
  try {
    if (replacement_.IsPending()) return;  // for RecoverPublication
  } catch (const PublishError&) {
    return;
  }
  RemoveContents();
  lock_.reset();
  std::error_code ignored;
  fs::remove(folder_, ignored);
  if (isOutputNew_) fs::remove(folder_.parent_path(), ignored);  // if nothing was published
}

fs::path Staging::At(std::size_t number) const { return folder_ / std::to_string(number); }

void Staging::Publish(const std::vector<Placement>& placements) const {
  replacement_.Run(placements);
}

// What the tool itself has left there, and of that not the lock.
void Staging::RemoveContents() const {
  std::error_code error;
  std::vector<fs::path> contents;
  for (fs::directory_iterator at(folder_, error); !error && at != fs::end(at);
       at.increment(error)) {
    if (IsOfTheTool(at->path().filename().string())) contents.push_back(at->path());
  }
  for (const fs::path& path : contents) fs::remove(path, error);
}

Leftover RecoverPublication(const fs::path& output) {
  std::error_code error;
  if (!fs::exists(output / Staging::kFolder, error)) return Leftover::kNone;
  return Staging(output).leftover();
}

}  // namespace velmora::publish
