#include "publish/build/publication_link.h"

#include <system_error>

#include "platform/files.h"
#include "publish/build/finished_publication.h"
#include "publish/build/new_file.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

// Beside the link, until it takes its place.
constexpr char kNewLink[] = ".switching";

fs::path WithoutSlashAtEnd(const fs::path& path) {
  return path.has_filename() ? path : path.parent_path();
}

fs::path FolderOf(const fs::path& link) {
  std::error_code error;
  fs::path folder = fs::canonical(link.has_parent_path() ? link.parent_path() : ".", error);
  if (error) FailToWrite(link, error);
  return folder;
}

// What the link leads to; empty if there is none. A folder can't be replaced in one step.
fs::path TargetOf(const fs::path& link) {
  const fs::file_status status = fs::symlink_status(link);
  if (!fs::exists(status)) return {};
  if (fs::is_symlink(status)) return fs::read_symlink(link);
  const std::string name = ShownPath(link);
  throw PublishError(name + ": is no symbolic link; rename it, for example to " + name +
                     "-1, so that a link can take its place");
}

std::optional<Changes> ChangesSinceThatOf(const fs::path& link, const std::string& listName,
                                          const PublishedList& list) {
  std::error_code ignored;
  if (!fs::is_regular_file(link / PathOf(listName), ignored)) return std::nullopt;
  const auto earlier = ReadPublishedList(link / PathOf(listName));
  if (earlier == nullptr) return std::nullopt;
  return ChangesSince(*earlier, RecordsOf(list.files));
}

// The new link is made beside the old one and moved over it.
void Replace(const fs::path& link, const fs::path& target) {
  fs::path made = link;
  made += kNewLink;
  std::error_code error;
  if (fs::is_symlink(fs::symlink_status(made))) fs::remove(made, error);  // of a killed process
  fs::create_directory_symlink(target, made, error);
  if (error) FailToWrite(made, error);
  fs::rename(made, link, error);
  if (!error) return;
  std::error_code ignored;
  fs::remove(made, ignored);
  FailToWrite(link, error);
}

}  // namespace

SwitchedLink SwitchLink(const fs::path& link, const fs::path& publication,
                        const std::string& listName) {
  const fs::path place = WithoutSlashAtEnd(link);
  const fs::path folder = FolderOf(place);
  SwitchedLink result;
  result.before = TargetOf(place);
  const auto list = ReadFinishedList(publication, listName);
  RequireServable(publication, *list);
  result.changes = ChangesSinceThatOf(place, listName, *list);
  result.now = fs::canonical(publication).lexically_relative(folder);
  Replace(place, result.now);
  if (!platform::FlushDirectory(folder)) {
    FailToWrite(folder, {platform::LastSystemError(), std::system_category()});
  }
  return result;
}

}  // namespace velmora::publish
