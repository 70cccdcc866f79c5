// Where the files of a publication are fetched from while it is checked: a server, asked as
// patchers ask it, or a folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "engine/file_record.h"

namespace velmora::publish {

// How a response begins. A folder responds as a server would.
struct ResponseHead {
  std::int32_t status = 0;            // 0: there is no response
  std::optional<std::string> length;  // the text of Content-Length
  std::string encoding;               // the text of Content-Encoding; empty if there is none
  std::string redirectedTo;           // the URL that it comes from, if that is another one
  std::string trouble;                // what is wrong, if the status doesn't say it
};

// Takes one response: the head, then the body in chunks. Returns false if it wants no more.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual bool TakeHead(const ResponseHead& head) = 0;
  virtual bool TakeBytes(const std::uint8_t* bytes, std::size_t count) = 0;
};

enum class DeliveryEnd {
  kEnded,     // the body has ended, by its length or with the connection
  kBroken,    // a reset, a disk error
  kStalled,   // a time-out
  kUnwanted,  // the sink wanted no more
};

// Delivers the file at `path`, one buffer at a time. For one thread at a time.
using Fetch = std::function<DeliveryEnd(const std::string& path, Sink& sink)>;

struct Origin {
  std::string name;      // what messages call it
  std::string listName;  // the list's file name, and
  std::string listPath;  // the path to fetch it by
  // The path to fetch a record's file by; nothing if patchers can't request it.
  std::function<std::optional<std::string>(const FileRecord&)> pathOf;
  // Returns a Fetch with a connection of its own. Safe from any thread.
  std::function<Fetch()> open;
};

// A server as patchers know it when they start to download.
struct Server {
  std::string host;
  std::int32_t port = 0;  // 0: the default of HTTP
  std::string dataPath;
  std::string user;  // empty: no credentials
  std::string password;
};

// "http://host:port/path", without the port if it is the default one.
[[nodiscard]] std::string ServerName(const Server& server);

// Each wait within a delivery ends after the patcher's ten seconds.
[[nodiscard]] Origin ServerOrigin(const Server& server, const std::string& listName);

[[nodiscard]] Origin FolderOrigin(const std::filesystem::path& folder, const std::string& listName);

}  // namespace velmora::publish
