// Where the files of a publication come from while it is checked: a server, asked as patchers ask
// it, or a folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "engine/file_record.h"

namespace velmora::publish {

// How an answer begins. A folder answers as a server would.
struct AnswerHead {
  std::int32_t status = 0;            // 0: there is no answer
  std::optional<std::string> length;  // the text of Content-Length
  std::string trouble;                // of a status that says too little: what is wrong
};

// Takes one answer: the head, and then the body by pieces. A false says that no more is wanted.
class Receiver {
 public:
  virtual ~Receiver() = default;
  virtual bool TakeHead(const AnswerHead& head) = 0;
  virtual bool TakePiece(const std::uint8_t* bytes, std::size_t count) = 0;
};

enum class DeliveryEnd {
  kEnded,     // the body has ended, on the server's word or with its connection
  kBroken,    // a reset, a time-out, a disk that can't be read
  kUnwanted,  // the receiver had enough
};

// Delivers what stands at `path`, by pieces of one buffer. One thread at a time.
using Source = std::function<DeliveryEnd(const std::string& path, Receiver& receiver)>;

struct Site {
  std::string name;      // what messages call it
  std::string listName;  // the list's file name, and
  std::string listPath;  // where a source finds it
  // Where a source finds the file of a record; nothing if a patcher couldn't ask for it.
  std::function<std::optional<std::string>(const FileRecord&)> pathOf;
  // A source with a connection of its own. Any thread.
  std::function<Source()> open;
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

// Each wait of a delivery is bounded by the patcher's ten seconds.
[[nodiscard]] Site ServerSite(const Server& server, const std::string& listName);

[[nodiscard]] Site FolderSite(const std::filesystem::path& folder, const std::string& listName);

}  // namespace velmora::publish
