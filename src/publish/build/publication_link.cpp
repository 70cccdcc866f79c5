#include "publish/build/publication_link.h"

#include <system_error>

#include "platform/folder_link.h"
#include "publish/build/finished_publication.h"
#include "publish/build/new_file.h"
#include "publish/common/disk_text.h"
#include "publish/common/publish_error.h"

namespace velmora::publish {
namespace {

namespace fs = std::filesystem;

fs::path WithoutSlashAtEnd(const fs::path& path) {
  return path.has_filename() ? path : path.parent_path();
}

fs::path FolderOf(const fs::path& link) {
  return platform::CanonicalPath(link.has_parent_path() ? link.parent_path() : ".");
}

// What the link leads to; empty if there is none. A folder can't be replaced in one step.
fs::path TargetOf(const fs::path& link) {
  std::error_code error;
  const fs::file_type kind = platform::EntryKind(link, error);
  if (!error && kind == fs::file_type::not_found) return {};
  fs::path target;
  if (!error && kind == fs::file_type::symlink) target = platform::LinkTarget(link, error);
  if (error) FailToWrite(link, error);
  if (!target.empty()) return target;
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

void Point(const fs::path& link, const fs::path& folder, const fs::path& target) {
  std::error_code error;
  platform::PointLink(folder / link.filename(), target, error);
  if (error == std::errc::not_supported) {
    FailToWrite(link,
                "there are no links to folders on its drive; let the web server itself offer " +
                    ShownPath(target) + ", or switch on the server's own machine");
  }
  if (error) FailToWrite(link, error);
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
  const fs::path target = platform::CanonicalPath(publication);
  result.now = target.lexically_relative(folder);
  if (result.now.empty()) result.now = target;  // on another drive
  Point(place, folder, target);
  return result;
}

}  // namespace velmora::publish
