// For scripts/instructions.sh, which counts what one record costs: runs each step of a start with
// nothing to do, once, on ten thousand records. Start it in an empty folder. Prints the number of
// records.
#include <cstdio>
#include <string>

#include "engine/record_set.h"
#include "engine/reference_list.h"
#include "engine/update_pass.h"
#include "engine/verify_cache.h"

namespace {

constexpr int kRecords = 10'000;

std::string List() {
  std::string text;
  for (int i = 0; i < kRecords; ++i) {
    char line[256];
    std::snprintf(line, sizeof line, "FILE : data\\maps\\f%06d.dat, %040X, 100, %040X, 100\n",
                  i * 7919 % kRecords, i, i);
    text += line;
  }
  return text;
}

}  // namespace

int main() {
  using namespace velmora;
  std::string clientExe;
  ParseReferenceList(List(), UpdateSet, RemoveSet, clientExe, [](std::string_view) {});
  for (const FileRecord& record : UpdateSet) RememberVerified(record);
  SaveVerifyCache();
  LoadVerifyCache();
  int known = 0;
  for (const FileRecord& record : UpdateSet) known += IsVerifiedUnchanged(record) ? 1 : 0;
  std::printf("%d\n", known);
  return known == kRecords ? 0 : 1;
}
