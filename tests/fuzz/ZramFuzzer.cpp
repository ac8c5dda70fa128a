// zram's usage files given any contents: mm_stat (preferred) and the older
// mem_used_total, each present or absent as the input says. The reader's
// answer follows its parsers on the first page of each file and always comes
// back in KiB.
#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

namespace {

constexpr const char* kMmStat = "/sys/block/zram0/mm_stat";
constexpr const char* kMemUsedTotal = "/sys/block/zram0/mem_used_total";
// Single-value sysfs files are read no further than one page.
constexpr size_t kPage = 4096;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  const ScratchDevice& device = ScratchDevice::instance();
  uint8_t presence = in.byte();
  std::string mmStat = in.text(255);
  if (in.flag()) mmStat += std::string(kPage, ' ');  // a value pushed past the first page
  std::string memUsedTotal = in.rest();
  bool haveMmStat = (presence & 1) != 0;
  bool haveMemUsedTotal = (presence & 2) != 0;
  if (haveMmStat) device.write(kMmStat, mmStat); else device.remove(kMmStat);
  if (haveMemUsedTotal) device.write(kMemUsedTotal, memUsedTotal); else device.remove(kMemUsedTotal);

  LogSink log;
  unsigned long kib = 0;
  bool read = halvexd::StatUtil::getZramMemUsedKb(kib);

  unsigned long bytes = 0;
  bool expected = false;
  if (haveMmStat && halvexd::parseZramMmStat(mmStat.substr(0, kPage), bytes)) {
    expected = true;
  } else if (haveMemUsedTotal &&
             halvexd::parseFirstUnsigned(memUsedTotal.substr(0, kPage), bytes)) {
    expected = true;
  }
  check(read == expected, "reader and parsers disagree on success");
  if (expected) check(kib == (bytes >> 10), "reader and parsers disagree on the value");
  return 0;
}
