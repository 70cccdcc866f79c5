// What a test and the shim inside the patcher's processes share: the plan of one fault, and what
// came of it.
//
// The plan stands in environment variables: kFaultOperation names the operations that count,
// kFaultEffect says what happens to the one of them that has the number kFaultNumber, counted from
// 1 over all processes of a chain. Operations count that concern the folder kFaultFolder, its
// descriptors, or blocks of memory that the program itself asks for. The log is most
// of what a run does to a disk: of the operations on it, each kFaultLogStride-th counts.
//
//   operation   open read write close unlink rmdir mkdir rename ftruncate chmod status
//               memory thread exec; "change" stands for all that change the disk
//   effect      a number: the operation fails with that error
//               half:      half of the bytes are taken or given
//               full:      (write) half of the bytes are taken, and no byte from then on
//               kill:      the process is killed in front of the operation
//               kill-half: (write) the process is killed after half of the bytes
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora::test {

inline constexpr char kFaultOperation[] = "VELMORA_FAULT_OPERATION";
inline constexpr char kFaultEffect[] = "VELMORA_FAULT_EFFECT";
inline constexpr char kFaultNumber[] = "VELMORA_FAULT_NUMBER";
inline constexpr char kFaultFolder[] = "VELMORA_FAULT_FOLDER";
inline constexpr char kFaultLogStride[] = "VELMORA_FAULT_LOG_STRIDE";
inline constexpr char kFaultReport[] = "VELMORA_FAULT_REPORT";

// The file kFaultReport, which all processes of the chain map.
struct FaultReport {
  std::atomic<std::uint32_t> counted;  // operations so far
  std::atomic<std::uint32_t> logged;   // operations on the log
  std::atomic<std::uint32_t> struck;   // whether the fault has happened
  char operation[240];                 // and to what
};

}  // namespace velmora::test
