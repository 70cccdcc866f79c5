// One fault for a chain of the patcher's processes, and what came of it: a file that the test and
// all these processes map. The environment variable kFaultPlan names it; without one nothing fails.
//
// Operations count, from 1 and over all processes of the chain, if they are of the kind that the
// plan names and concern its folder, or blocks of memory that the program itself asks for.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora::test {

inline constexpr char kFaultPlan[] = "VELMORA_FAULT_PLAN";

// What happens to an operation: it fails with an error of errno.h, or one of these.
enum FaultEffect : int {
  kNoFault = 0,
  kHalf = -1,      // half of the bytes are read or written
  kKill = -2,      // the process is killed before the operation
  kKillHalf = -3,  // the process is killed after half of the bytes
};

struct FaultPlan {
  // open read write close unlink rmdir mkdir rename ftruncate chmod status memory thread exec;
  // "change" is everything that changes the disk.
  char operation[16];
  char folder[200];
  int effect;
  std::uint32_t number;     // of the operation that is struck
  std::uint32_t logStride;  // of the operations on the log, which are most, every so many counts
  std::atomic<std::uint32_t> counted;
  std::atomic<std::uint32_t> logged;
  std::atomic<std::uint32_t> struck;  // whether the fault has happened,
  char struckOperation[240];          // and to what
};

}  // namespace velmora::test
