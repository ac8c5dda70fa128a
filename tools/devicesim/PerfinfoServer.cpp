#include "tools/devicesim/PerfinfoServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace halvexd::devicesim {
namespace {

// How long the thread waits between looks at its stop flag.
constexpr int kPollMillis = 20;
// A pid is a few digits; a longer write is not one and is not kept whole.
constexpr size_t kMaxRequestBytes = 64;

}  // namespace

PerfinfoServer::PerfinfoServer(const std::string& root, Answer answerFn, bool keepWrites)
    : fifoPath(root + "/proc/perfinfo"),
      asidePath(root + "/proc/.perfinfo.next"),
      answer(std::move(answerFn)),
      keep(keepWrites) {
  std::filesystem::create_directories(root + "/proc");
  // The first FIFO is in place, with a reader holding it, before the
  // constructor returns: a write made at once is kept for the thread.
  reader = openFreshFifo(fifoPath);
  if (reader < 0) {
    throw std::runtime_error("cannot create the perfinfo FIFO");
  }
  worker = std::thread([this] { serve(); });
}

PerfinfoServer::~PerfinfoServer() {
  stop = true;
  worker.join();
  if (reader >= 0) close(reader);
}

std::vector<std::string> PerfinfoServer::written() const {
  std::lock_guard<std::mutex> hold(lock);
  return requests;
}

std::string PerfinfoServer::pssLine(unsigned long kb) {
  return "Pss: " + std::to_string(kb) + " kB\n";
}

PerfinfoServer::Answer PerfinfoServer::byPid(std::vector<std::pair<int, unsigned long>> table) {
  return [table](const std::string& written) {
    for (const auto& [pid, kb] : table) {
      if (written == std::to_string(pid)) return pssLine(kb);
    }
    return pssLine(0);
  };
}

int PerfinfoServer::openFreshFifo(const std::string& path) {
  unlink(path.c_str());
  if (mkfifo(path.c_str(), 0600) != 0) return -1;
  return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

void PerfinfoServer::serve() {
  while (!stop) {
    // Collect one write: data until the writer closes. A fresh FIFO reports
    // no hang-up before its first writer, so poll waits for the daemon.
    std::string request;
    bool closedByWriter = false;
    while (!stop && !closedByWriter) {
      pollfd waitFor{reader, POLLIN, 0};
      if (poll(&waitFor, 1, kPollMillis) <= 0) continue;
      char buffer[64];
      ssize_t got = read(reader, buffer, sizeof(buffer));
      if (got > 0) {
        if (request.size() < kMaxRequestBytes) request.append(buffer, static_cast<size_t>(got));
      } else if (got == 0) {
        closedByWriter = true;
      } else if (errno != EAGAIN && errno != EINTR) {
        return;
      }
    }
    if (stop) return;
    if (keep) {
      std::lock_guard<std::mutex> hold(lock);
      requests.push_back(request);
    }
    close(reader);
    reader = -1;

    // Wait for the daemon's reading open on this FIFO (it blocks there until
    // a writer comes), then move a fresh FIFO into place for the next
    // exchange before answering.
    int writer = -1;
    while (!stop && (writer = open(fifoPath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0) {
      if (errno != ENXIO && errno != EINTR) return;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (writer < 0) return;
    reader = openFreshFifo(asidePath);
    if (reader < 0 || std::rename(asidePath.c_str(), fifoPath.c_str()) != 0) {
      close(writer);
      return;
    }
    std::string reply = answer(request);
    size_t sent = 0;
    while (sent < reply.size()) {
      ssize_t put = write(writer, reply.data() + sent, reply.size() - sent);
      if (put <= 0) break;
      sent += static_cast<size_t>(put);
    }
    close(writer);
    ++served;
  }
}

}  // namespace halvexd::devicesim
