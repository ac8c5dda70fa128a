#include "tools/devicesim/SampleDevice.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace halvexd::devicesim {
namespace {

constexpr double kPi = 3.14159265358979323846;
// Clock ticks per second and per CPU, as the kernel counts them.
constexpr uint64_t kClockTicks = 100;
// No process keeps more than this share of one CPU busy.
constexpr double kMaxProcessTicksPerSecond = 90;
constexpr size_t kMinApps = 2, kMaxApps = 6;
constexpr uint64_t kDataFillStep = 64 * 1024, kDataFillLimit = 32 * 1024 * 1024;
const char* const kDataFillFile = "data/devicesim-fill.bin";

// Packages that come and go. The kernel keeps the last 15 bytes of the name
// as comm, as it does for every application forked from the zygote.
const char* const kApps[] = {"com.android.settings", "com.android.camera2", "com.android.deskclock",
                             "com.android.email",    "android.process.media",
                             "com.android.gallery3d", "com.android.calendar"};

std::string commOfPackage(const std::string& package) {
  return package.size() > 15 ? package.substr(package.size() - 15) : package;
}

std::vector<std::string> words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> out;
  std::string word;
  while (in >> word) out.push_back(word);
  return out;
}

uint64_t toU64(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 10); }

}  // namespace

SampleDevice::SampleDevice(const std::string& root, uint64_t seed)
    : tree(root), random(seed), spellRandom(seed + 1) {
  readTree();
  std::error_code ignored;
  std::filesystem::create_directory_symlink("/proc/self", tree.path("proc/self"), ignored);
  for (size_t i = 0; i < 3; ++i) startProcess();
  // The first state, written whole.
  everySecond();
  writeCpu();
  writeUptime();
}

void SampleDevice::readTree() {
  std::string text;
  if (!tree.read("proc/stat", text)) throw std::runtime_error("no proc/stat in " + tree.root());
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::vector<std::string> parts = words(line);
    if (!parts.empty() && parts[0].rfind("cpu", 0) == 0) {
      KernelText::CpuCounters counters(10, 0);
      for (size_t i = 1; i < parts.size() && i <= 10; ++i) counters[i - 1] = toU64(parts[i]);
      if (parts[0] == "cpu") {
        cpuTotal = counters;
      } else {
        perCpu.push_back(counters);
      }
    } else {
      statTail += line + "\n";
    }
  }
  if (perCpu.empty()) perCpu.push_back(cpuTotal);

  if (!tree.read("proc/meminfo", text)) throw std::runtime_error("no proc/meminfo in " + tree.root());
  std::istringstream memLines(text);
  while (std::getline(memLines, line)) {
    std::vector<std::string> parts = words(line);
    if (parts.size() >= 2 && parts[0].back() == ':') {
      meminfo.emplace_back(parts[0].substr(0, parts[0].size() - 1), toU64(parts[1]));
    }
  }

  if (tree.read("proc/uptime", text)) {
    std::vector<std::string> parts = words(text);
    if (parts.size() >= 2) {
      uptimeSeconds = std::max(200.0, std::strtod(parts[0].c_str(), nullptr));
      idleSeconds = std::strtod(parts[1].c_str(), nullptr);
    }
  }
  if (tree.read("sys/block/zram0/mm_stat", text)) {
    for (const std::string& word : words(text)) zram.push_back(toU64(word));
  }
  zramTotalFile = tree.exists("sys/block/zram0/mem_used_total");
  auto ksmValue = [this](const char* name, uint64_t fallback) {
    std::string value;
    return tree.read(std::string("sys/kernel/mm/ksm/") + name, value) ? toU64(value) : fallback;
  };
  ksmShared = ksmValue("pages_shared", 2000);
  ksmSharing = ksmValue("pages_sharing", 9000);
  ksmUnshared = ksmValue("pages_unshared", 15000);
  ksmVolatile = ksmValue("pages_volatile", 3000);
  ksmScans = ksmValue("full_scans", 10);
  if (tree.read("proc/lmk_stats", text)) {
    std::istringstream killLines(text);
    while (std::getline(killLines, line)) {
      std::vector<std::string> parts = words(line);
      if (parts.size() == 2 && parts[0].back() == ':') {
        kills.emplace_back(parts[0].substr(0, parts[0].size() - 1), toU64(parts[1]));
      }
    }
  }
  readProcesses();
}

void SampleDevice::readProcesses() {
  std::vector<int> pids;
  for (const auto& entry : std::filesystem::directory_iterator(tree.path("proc"))) {
    const std::string name = entry.path().filename().string();
    if (!name.empty() && std::all_of(name.begin(), name.end(), ::isdigit)) {
      pids.push_back(std::stoi(name));
    }
  }
  std::sort(pids.begin(), pids.end());  // the directory's order is not fixed
  for (int pid : pids) {
    std::string stat;
    if (!tree.read("proc/" + std::to_string(pid) + "/stat", stat)) continue;
    const size_t open = stat.find('(');
    const size_t close = stat.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) continue;
    Process process;
    process.pid = pid;
    process.comm = stat.substr(open + 1, close - open - 1);
    process.fields = words(stat.substr(close + 1));
    if (process.fields.size() < 22) continue;
    process.utime = toU64(process.fields[11]);
    process.stime = toU64(process.fields[12]);
    const long rss = std::atol(process.fields[21].c_str());
    process.kernelThread = rss == 0;
    // PSS sits below RSS: shared pages count in part.
    process.basePssKb = static_cast<double>(rss) * 4 * (0.45 + 0.2 * unit());
    process.weight = std::log1p(static_cast<double>(process.utime + process.stime)) + 0.5;
    pssByPid[pid] = static_cast<uint64_t>(process.basePssKb);
    processes.push_back(process);
    nextPid = std::max(nextPid, pid + 1);
  }
}

void SampleDevice::step() {
  ++stepCount;
  if (stepCount % kStepsPerSecond == 0) {
    ++second;
    everySecond();
  }
  advanceCpu();
  writeCpu();
  writeUptime();
}

void SampleDevice::everySecond() {
  // Processes are charged with the busy time of the second that ended.
  advanceProcesses();
  busyThisSecond = 0;
  if (cpuBurstLeft > 0) {
    if (burstPid == 0) {
      Process* culprit = beginSpell(false);
      burstPid = culprit != nullptr ? culprit->pid : -1;
    }
    --cpuBurstLeft;
    load = 96 + 3 * unit();
  } else {
    burstPid = 0;
    const double s = static_cast<double>(second);
    load = 45 + 22 * std::sin(2 * kPi * s / 61) + 10 * std::sin(2 * kPi * s / 17) +
           10 * (unit() - 0.5);
    if (second >= nextCpuBurst) {
      cpuBurstLeft = 3 + static_cast<int>(below(5));
      nextCpuBurst = second + 20 + below(30);
    }
  }
  load = std::clamp(load, 5.0, 99.0);
  churnProcesses();
  advanceMemory();
  advancePressure();
  advanceZramAndKsm();
  advanceKills();
  fillData();
}

void SampleDevice::advanceCpu() {
  const uint64_t perStep = kClockTicks / kStepsPerSecond;
  const uint64_t busyBefore = busyThisSecond;
  for (KernelText::CpuCounters& cpu : perCpu) {
    // Busy ticks of this CPU in this step, rounded at random so the average
    // follows the load exactly.
    const double wanted = static_cast<double>(perStep) * load / 100.0;
    uint64_t busy = static_cast<uint64_t>(wanted);
    if (unit() < wanted - static_cast<double>(busy)) ++busy;
    busy = std::min(busy, perStep);
    const uint64_t user = busy * 58 / 100, nice = busy * 4 / 100, system = busy * 26 / 100;
    const uint64_t iowait = busy * 4 / 100, irq = busy * 3 / 100;
    const uint64_t softirq = busy - user - nice - system - iowait - irq;
    const uint64_t split[10] = {user, nice, system, perStep - busy, iowait, irq, softirq, 0, 0, 0};
    for (size_t i = 0; i < 10; ++i) {
      cpu[i] += split[i];
      cpuTotal[i] += split[i];
    }
    busyThisSecond += busy;
  }
  chargeBurst(busyThisSecond - busyBefore);
  const double step = 1.0 / kStepsPerSecond;
  uptimeSeconds += step;
  idleSeconds += step * static_cast<double>(perCpu.size()) * (100 - load) / 100;
}

void SampleDevice::advanceProcesses() {
  // Applications take most of the busy time; each its share, varied at
  // random every second.
  const double appTicks = static_cast<double>(busyThisSecond) * 0.6;
  std::vector<double> draw(processes.size(), 0);
  double total = 0;
  for (size_t i = 0; i < processes.size(); ++i) {
    if (processes[i].kernelThread) continue;
    draw[i] = processes[i].weight * (0.2 + 1.6 * unit());
    total += draw[i];
  }
  std::lock_guard<std::mutex> hold(pssLock);
  for (size_t i = 0; i < processes.size(); ++i) {
    Process& process = processes[i];
    uint64_t ticks = 0;
    if (process.kernelThread) {
      ticks = below(3);
      process.stime += ticks;
    } else if (total > 0) {
      ticks = static_cast<uint64_t>(std::min(kMaxProcessTicksPerSecond, appTicks * draw[i] / total));
      const uint64_t user = ticks * (60 + below(30)) / 100;
      process.utime += user;
      process.stime += ticks - user;
    }
    if (ticks > 0 || stepCount == 0) writeProcess(process);
    // PSS drifts within a band around the process's own size.
    const double base = process.basePssKb;
    const double drifted = static_cast<double>(pssByPid[process.pid]) * (0.985 + 0.03 * unit());
    pssByPid[process.pid] = static_cast<uint64_t>(
        process.kernelThread ? 0 : std::clamp(drifted, base * 0.7, base * 1.3));
    writeRollup(process, pssByPid[process.pid]);
  }
}

void SampleDevice::churnProcesses() {
  size_t apps = 0;
  for (const Process& process : processes) apps += process.transient ? 1 : 0;
  if (apps > kMinApps && below(9) == 0) {
    // One application exits; its pid may come back later for another.
    size_t pick = below(apps);
    for (size_t i = 0; i < processes.size(); ++i) {
      if (!processes[i].transient || pick-- != 0) continue;
      const int pid = processes[i].pid;
      // The application behind a running spell stays until it ends.
      if (pid == burstPid || pid == spellPid) break;
      tree.removeDirectory("proc/" + std::to_string(pid));
      {
        std::lock_guard<std::mutex> hold(pssLock);
        pssByPid.erase(pid);
      }
      freedPids.push_back(pid);
      processes.erase(processes.begin() + static_cast<long>(i));
      break;
    }
  } else if (apps < kMaxApps && below(7) == 0) {
    startProcess();
  }
}

void SampleDevice::startProcess() {
  int pid = nextPid;
  if (!freedPids.empty() && below(2) == 0) {
    pid = freedPids.front();
    freedPids.pop_front();
  } else {
    ++nextPid;
  }
  const std::string package = kApps[below(sizeof(kApps) / sizeof(kApps[0]))];
  Process process;
  process.pid = pid;
  process.comm = commOfPackage(package);
  process.transient = true;
  process.weight = 1 + 3 * unit();
  const long rssPages = 10000 + static_cast<long>(below(40000));
  const uint64_t startTicks = static_cast<uint64_t>(uptimeSeconds * kClockTicks);
  const std::string stat = KernelText::processStat(pid, process.comm, 0, 0, rssPages, startTicks);
  process.fields = words(stat.substr(stat.rfind(')') + 1));
  process.basePssKb = static_cast<double>(rssPages) * 4 * 0.55;
  const std::string dir = "proc/" + std::to_string(pid);
  std::filesystem::create_directories(tree.path(dir));
  tree.write(dir + "/cmdline", package + std::string(1, '\0'));
  tree.write(dir + "/comm", process.comm + "\n");
  writeProcess(process);
  {
    std::lock_guard<std::mutex> hold(pssLock);
    pssByPid[pid] = static_cast<uint64_t>(process.basePssKb);
  }
  writeRollup(process, static_cast<uint64_t>(process.basePssKb));
  processes.push_back(process);
}

void SampleDevice::writeProcess(const Process& process) const {
  std::vector<std::string> fields = process.fields;
  fields[11] = std::to_string(process.utime);
  fields[12] = std::to_string(process.stime);
  std::string line = std::to_string(process.pid) + " (" + process.comm + ")";
  for (const std::string& field : fields) line += " " + field;
  tree.write("proc/" + std::to_string(process.pid) + "/stat", line + "\n");
}

void SampleDevice::writeRollup(const Process& process, uint64_t pssKb) const {
  // A kernel thread maps nothing: its smaps_rollup reads empty.
  const uint64_t rssKb = std::strtoull(process.fields[21].c_str(), nullptr, 10) * 4;
  tree.write("proc/" + std::to_string(process.pid) + "/smaps_rollup",
             process.kernelThread ? std::string()
                                  : KernelText::smapsRollup(std::max(rssKb, pssKb), pssKb));
}

void SampleDevice::Stall::add(double percent) {
  // The kernel's running averages, moved once a second.
  const double windows[3] = {10, 60, 300};
  for (size_t i = 0; i < 3; ++i) {
    const double keep = std::exp(-1 / windows[i]);
    averages[i] = averages[i] * keep + percent * (1 - keep);
  }
  totalUs += static_cast<uint64_t>(percent * 10000);
}

void SampleDevice::advancePressure() {
  const double cpu = std::clamp((load - 40) * 1.2, 0.0, 100.0);
  const double memory = std::clamp((memoryUsedPercent - 84) * 4, 0.0, 100.0);
  const double io = std::clamp(2 + load * 0.05 + memory * 0.3, 0.0, 100.0);
  cpuSome.add(cpu);
  memorySome.add(memory);
  memoryFull.add(memory * 0.35);
  ioSome.add(io);
  ioFull.add(io * 0.4);
  // The tablet's kernel predates the "full" line of cpu.
  std::filesystem::create_directories(tree.path("proc/pressure"));
  tree.write("proc/pressure/cpu",
             KernelText::pressureLine("some", cpuSome.averages, cpuSome.totalUs));
  tree.write("proc/pressure/memory",
             KernelText::pressureLine("some", memorySome.averages, memorySome.totalUs) +
                 KernelText::pressureLine("full", memoryFull.averages, memoryFull.totalUs));
  tree.write("proc/pressure/io",
             KernelText::pressureLine("some", ioSome.averages, ioSome.totalUs) +
                 KernelText::pressureLine("full", ioFull.averages, ioFull.totalUs));
}

void SampleDevice::writeCpu() const {
  tree.write("proc/stat", KernelText::procStat(cpuTotal, perCpu, statTail));
}

void SampleDevice::writeUptime() const {
  char text[64];
  std::snprintf(text, sizeof(text), "%.2f %.2f\n", uptimeSeconds, idleSeconds);
  tree.write("proc/uptime", text);
}

void SampleDevice::advanceMemory() {
  auto field = [this](const std::string& name) -> uint64_t* {
    for (auto& [key, value] : meminfo) {
      if (key == name) return &value;
    }
    return nullptr;
  };
  uint64_t* total = field("MemTotal");
  uint64_t* available = field("MemAvailable");
  if (total == nullptr || available == nullptr || *total == 0) return;
  double used;
  if (memorySpellLeft > 0) {
    // A spell of pressure: an application loads a large working set.
    if (spellPid == 0) {
      Process* culprit = beginSpell(true);
      spellPid = culprit != nullptr ? culprit->pid : -1;
    }
    --memorySpellLeft;
    used = 95.6 + 1.5 * unit();
    // What the spell adds over the usual 78 %, in the culprit's pages (its
    // stat is written before meminfo, so a reader that sees the spell sees
    // the pages too).
    growWorkingSet(static_cast<uint64_t>(static_cast<double>(*total) * (used - 78) / 100));
  } else {
    growWorkingSet(0);
    spellPid = 0;
    const double s = static_cast<double>(second);
    used = 78 + 8 * std::sin(2 * kPi * s / 83) + 4 * std::sin(2 * kPi * s / 29) + 2 * (unit() - 0.5);
    if (second >= nextMemorySpell) {
      memorySpellLeft = 3 + static_cast<int>(below(6));
      nextMemorySpell = second + 25 + below(25);
    }
  }
  used = std::clamp(used, 30.0, 99.0);
  memoryUsedPercent = used;
  *available = static_cast<uint64_t>(static_cast<double>(*total) * (100 - used) / 100);
  if (uint64_t* free = field("MemFree")) *free = *available / 12;
  if (uint64_t* cached = field("Cached")) *cached = *available * 8 / 10;
  uint64_t* swapTotal = field("SwapTotal");
  uint64_t* swapFree = field("SwapFree");
  if (swapTotal != nullptr && swapFree != nullptr && *swapTotal > 0) {
    const double share = static_cast<double>(*swapFree) / static_cast<double>(*swapTotal) +
                         0.01 * (unit() - 0.5) - (used > 95 ? 0.01 : 0);
    *swapFree = static_cast<uint64_t>(static_cast<double>(*swapTotal) * std::clamp(share, 0.4, 0.9));
  }
  tree.write("proc/meminfo", KernelText::meminfo(meminfo));
}

void SampleDevice::advanceZramAndKsm() {
  if (zram.size() >= 5) {
    constexpr double kMiB = 1024 * 1024;
    double original = static_cast<double>(zram[0]) + kMiB * (3 * unit() - 1.2);
    original = std::clamp(original, 300 * kMiB, 1200 * kMiB);
    zram[0] = static_cast<uint64_t>(original);
    zram[1] = static_cast<uint64_t>(original * (0.3 + 0.04 * unit()));
    zram[2] = zram[1] + 4 * 1024 * 1024;
    zram[4] = std::max(zram[4], zram[2]);
    if (zram.size() > 6) {
      zram[5] += below(3);
      zram[6] += below(2);
    }
    std::string text;
    char column[32];
    for (size_t i = 0; i < zram.size(); ++i) {
      std::snprintf(column, sizeof(column), i == 0 ? "%8llu" : " %8llu",
                    static_cast<unsigned long long>(zram[i]));
      text += column;
    }
    tree.write("sys/block/zram0/mm_stat", text + "\n");
    if (zramTotalFile) tree.write("sys/block/zram0/mem_used_total", std::to_string(zram[2]) + "\n");
  }
  if (!tree.exists("sys/kernel/mm/ksm/pages_shared")) return;
  ksmShared = std::clamp<uint64_t>(ksmShared + below(41) - 20, 500, 20000);
  ksmSharing = ksmShared * (3 + below(3)) + below(100);
  ksmUnshared = std::clamp<uint64_t>(ksmUnshared + below(201) - 100, 1000, 100000);
  ksmVolatile = std::clamp<uint64_t>(ksmVolatile + below(61) - 30, 100, 50000);
  if (second % 20 == 0) ++ksmScans;
  const std::pair<const char*, uint64_t> ksm[] = {{"pages_shared", ksmShared},
                                                  {"pages_sharing", ksmSharing},
                                                  {"pages_unshared", ksmUnshared},
                                                  {"pages_volatile", ksmVolatile},
                                                  {"full_scans", ksmScans}};
  for (const auto& [name, value] : ksm) {
    tree.write(std::string("sys/kernel/mm/ksm/") + name, std::to_string(value) + "\n");
  }
}

void SampleDevice::advanceKills() {
  if (kills.empty()) return;
  if (killBurstLeft == 0) {
    if (below(15) != 0) return;
    killBurstLeft = 1 + static_cast<int>(below(3));
  }
  --killBurstLeft;
  // The lower a class's importance, the more of its processes go.
  const std::map<std::string, uint64_t> added = {
      {"Other", 1 + below(4)},       {"Backup", below(3)}, {"Perceptible", below(3) == 0 ? 1u : 0u},
      {"Visible", below(8) == 0 ? 1u : 0u}, {"Fg", below(20) == 0 ? 1u : 0u}};
  uint64_t sum = 0;
  std::string text;
  for (auto& [name, count] : kills) {
    if (name == "Total") continue;
    auto more = added.find(name);
    if (more != added.end()) count += more->second;
    sum += count;
  }
  for (auto& [name, count] : kills) {
    if (name == "Total") count = sum;
    text += name + ": " + std::to_string(count) + "\n";
  }
  tree.write("proc/lmk_stats", text);
}

void SampleDevice::fillData() {
  if (dataFillBytes >= kDataFillLimit || !tree.exists("data")) return;
  dataFillBytes += kDataFillStep;
  FILE* file = std::fopen(tree.path(kDataFillFile).c_str(), "ab");
  if (file == nullptr) return;
  const std::string block(kDataFillStep, '\x5a');
  std::fwrite(block.data(), 1, block.size(), file);
  std::fclose(file);
}

SampleDevice::Process* SampleDevice::findProcess(int pid) {
  for (Process& process : processes) {
    if (process.pid == pid) return &process;
  }
  return nullptr;
}

SampleDevice::Process* SampleDevice::beginSpell(bool memory) {
  std::vector<Process*> apps;
  for (Process& process : processes) {
    if (process.transient) apps.push_back(&process);
  }
  if (apps.empty()) return nullptr;
  Process* culprit = apps[spellRandom() % apps.size()];
  std::lock_guard<std::mutex> hold(pssLock);
  spellLog.push_back({memory, culprit->pid, culprit->comm, second});
  return culprit;
}

void SampleDevice::chargeBurst(uint64_t busyTicks) {
  Process* culprit = burstPid > 0 ? findProcess(burstPid) : nullptr;
  if (culprit == nullptr) return;
  // Half the busy time of every step, on its own: two of four CPUs.
  const uint64_t ticks = busyTicks / 2;
  culprit->utime += ticks * 9 / 10;
  culprit->stime += ticks - ticks * 9 / 10;
  busyThisSecond -= ticks;
  writeProcess(*culprit);
}

void SampleDevice::growWorkingSet(uint64_t extraKb) {
  Process* culprit = spellPid > 0 ? findProcess(spellPid) : nullptr;
  if (culprit == nullptr) return;
  const long rss = std::atol(culprit->fields[21].c_str()) - spellPages;
  spellPages = static_cast<long>(extraKb / 4);
  culprit->fields[21] = std::to_string(rss + spellPages);
  {
    std::lock_guard<std::mutex> hold(pssLock);
    pssByPid[culprit->pid] = static_cast<uint64_t>(culprit->basePssKb) + extraKb;
  }
  writeProcess(*culprit);
  writeRollup(*culprit, static_cast<uint64_t>(culprit->basePssKb) + extraKb);
}

std::vector<SampleDevice::Spell> SampleDevice::spells() const {
  std::lock_guard<std::mutex> hold(pssLock);
  return spellLog;
}

std::string SampleDevice::perfinfoAnswer(const std::string& written) const {
  const int pid = std::atoi(written.c_str());
  std::lock_guard<std::mutex> hold(pssLock);
  auto found = pssByPid.find(pid);
  return "Pss: " + std::to_string(found == pssByPid.end() ? 0 : found->second) + " kB\n";
}

}  // namespace halvexd::devicesim
