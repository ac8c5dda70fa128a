// Plays the kernel's /proc/perfinfo inside a device tree: a FIFO at
// <root>/proc/perfinfo served by a thread. As the kernel does, it answers a
// read with the figure of the pid that was written before it, so a reader
// that reads without writing first, or writes something else, gets nothing
// useful.
//
// One exchange: the daemon opens the file for reading and writing, writes the
// pid and closes it (the thread collects what was written until that close),
// then opens the file again for reading and reads the answer. Each exchange
// uses a fresh FIFO renamed into place before the answer is written, so the
// thread never reads back its own answer.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace halvexd::devicesim {

class PerfinfoServer {
 public:
  // `answer` gets the text of one write and returns the whole reply (an empty
  // reply closes the file without a line).
  using Answer = std::function<std::string(const std::string& written)>;

  // With `keepWrites` false nothing is kept per exchange, so a long run holds
  // the same memory after every exchange.
  PerfinfoServer(const std::string& root, Answer answer, bool keepWrites = true);
  ~PerfinfoServer();
  PerfinfoServer(const PerfinfoServer&) = delete;
  PerfinfoServer& operator=(const PerfinfoServer&) = delete;

  // What each exchange wrote, in order (empty unless writes are kept).
  std::vector<std::string> written() const;
  unsigned long exchanges() const { return served; }

  // "Pss: <kB> kB\n" for the pids of `table` and "Pss: 0 kB\n" for others.
  static Answer byPid(std::vector<std::pair<int, unsigned long>> table);
  // The reply the kernel gives for a figure in kB.
  static std::string pssLine(unsigned long kb);

 private:
  void serve();
  // A new FIFO at a temporary path, opened for reading without waiting.
  int openFreshFifo(const std::string& path);

  std::string fifoPath;
  std::string asidePath;
  Answer answer;
  bool keep;
  int reader = -1;
  std::atomic<bool> stop{false};
  std::atomic<unsigned long> served{0};
  mutable std::mutex lock;
  std::vector<std::string> requests;
  std::thread worker;
};

}  // namespace halvexd::devicesim
