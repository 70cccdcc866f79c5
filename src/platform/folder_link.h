// A link to a folder, which a web server follows: a symbolic link, on Windows a junction, which
// needs no rights of its own. Safe from any thread.
#pragma once

#include <filesystem>
#include <system_error>

namespace velmora::platform {

// The folder to which a link leads; it may be relative to the link's own folder.
[[nodiscard]] std::filesystem::path LinkTarget(const std::filesystem::path& link,
                                               std::error_code& error);

// Lets `link` lead to `folder`, both given as CanonicalPath returns them, in one step: whoever
// follows a link that is there comes to the folder before or to the new one. Natively the link is
// relative, so that both can be moved together. Returns when a power cut would change nothing any
// more. The error is std::errc::not_supported where there
// are no such links, as on a share that Windows reaches.
void PointLink(const std::filesystem::path& link, const std::filesystem::path& folder,
               std::error_code& error);

}  // namespace velmora::platform
