#include "publish/build/staging.h"

#include <string>
#include <system_error>

#include "publish/build/new_file.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {

namespace fs = std::filesystem;

namespace {

constexpr char kLock[] = "lock";

using Outcome = platform::FileLock::Outcome;

}  // namespace

Staging::Staging(const fs::path& output)
    : folder_(output / kFolder), replacement_(folder_, output), isOutputNew_(!fs::exists(output)) {
  if (isOutputNew_ && platform::EntryKind(output) == fs::file_type::symlink) {
    throw PublishError(ShownPath(output) +
                       ": a link that leads nowhere; make the folder that it names, or remove it");
  }
  if (platform::EntryKind(folder_) == fs::file_type::symlink) FailToWrite(folder_, "it is a link");
  // The holder before may remove the folder between its creation and that of the lock.
  for (int attempt = 0; attempt < 3 && !lock_; ++attempt) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) FailToWrite(folder_, error);
    lock_ = std::make_unique<platform::FileLock>(folder_ / kLock);
    if (lock_->outcome() == Outcome::kFailed) lock_.reset();
  }
  if (!lock_) FailToWrite(folder_, "its lock can't be created");
  if (lock_->outcome() == Outcome::kTaken) {
    throw PublishError(ShownPath(output) + ": another build is running");
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

// Only what the tool itself has left there, and of that not the lock.
void Staging::RemoveContents() const {
  std::error_code error;
  for (const platform::FolderEntry& entry : platform::ListFolder(folder_, error)) {
    if (Replacement::Owns(TextOf(entry.path.filename())))
      platform::RemoveEntries(entry.path, error);
  }
}

bool HasUnfinishedReplacement(const fs::path& output) {
  return Replacement(output / Staging::kFolder, output).IsPending();
}

Leftover RecoverPublication(const fs::path& output) {
  std::error_code error;
  if (!fs::exists(output / Staging::kFolder, error)) return Leftover::kNone;
  return Staging(output).leftover();
}

}  // namespace velmora::publish
