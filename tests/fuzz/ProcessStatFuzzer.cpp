// /proc/<pid>/stat given any contents: the file reader and the pure parser
// agree on the part the reader reads, and a stat that reads is one the
// process list keeps or leaves out by its rss alone.
#include <algorithm>
#include <tuple>
#include <vector>

#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::ProcessStat;
using namespace halvexd::fuzz;

namespace {

constexpr int kPid = 4242;
// The part of the file the reader reads.
constexpr size_t kStatReadBytes = 511;

// Field by field: the record has padding, which no reader writes.
bool same(const ProcessStat& a, const ProcessStat& b) {
  auto fields = [](const ProcessStat& s) {
    return std::make_tuple(s.pid, s.state, s.ppid, s.pgrp, s.session, s.ttyNr, s.tpgid, s.flags,
                           s.minflt, s.cminflt, s.majflt, s.cmajflt, s.utime, s.stime, s.cutime,
                           s.cstime, s.priority, s.nice, s.numThreads, s.itrealvalue, s.starttime,
                           s.vsize, s.rss, s.rsslim);
  };
  return fields(a) == fields(b);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ScratchDevice::instance().write("/proc/4242/stat", data, size);
  const std::string text(reinterpret_cast<const char*>(data), std::min(size, kStatReadBytes));
  LogSink log;

  ProcessStat fromFile{};
  bool read = halvexd::StatUtil::getProcessStat(kPid, fromFile);
  ProcessStat parsed{};
  bool parsedOk = halvexd::parseProcessStat(text, parsed);
  check(read == parsedOk, "file reader and parser disagree on success");
  check(same(fromFile, parsed), "file reader and parser disagree");
  check(read || log.count("Failed to parse /proc/4242/stat") == 1, "refusal without its line");

  std::vector<int> pids;
  bool listed = halvexd::StatUtil::getProcessListRss(pids);
  check(listed == read, "process list success does not follow the one stat");
  check(pids.size() == (read && parsed.rss != 0 ? 1u : 0u), "process kept against its rss");
  return 0;
}
