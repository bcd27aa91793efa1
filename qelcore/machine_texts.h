// What the system's texts say: the thread list of the environment, the quota of a control group, the size of a cache. A
// garbled text grants nothing and takes nothing away. Nothing here allocates or calls the C++ library.
#ifndef QELCORE_MACHINE_TEXTS_H
#define QELCORE_MACHINE_TEXTS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "machine.h"

namespace qelcore {

// Cuts `text` at the first `mark`: gives what stands in front of it and leaves what follows.
inline std::string_view cut(std::string_view& text, char mark) {
  const size_t at = std::min(text.find(mark), text.size());
  // substr() would throw, by a function of the C++ library.
  const std::string_view front(text.begin(), text.begin() + at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return front;
}

// Cuts the decimal number off the front of `text`; -1 where there is no digit. It stops growing far above any
// number that is meant.
inline int64_t cutNumber(std::string_view& text) {
  constexpr int64_t kMost = 1'000'000'000'000'000;
  int64_t value = -1;
  for (; !text.empty() && text[0] >= '0' && text[0] <= '9'; text.remove_prefix(1))
    value = std::min(std::max(value, int64_t(0)) * 10 + (text[0] - '0'), kMost);
  return value;
}

// The first entry of OMP_NUM_THREADS, a list with one entry a nesting level; 0 when it is no number of threads.
inline int32_t threadsAsked(std::string_view list) {
  const auto cutBlanks = [&] {
    while (!list.empty() && (list[0] == ' ' || (list[0] >= '\t' && list[0] <= '\r'))) list.remove_prefix(1);
  };
  cutBlanks();
  const int64_t count = cutNumber(list);
  cutBlanks();
  if (count < 1 || !(list.empty() || list[0] == ',')) return 0;
  return int32_t(std::min<int64_t>(count, kMostThreads));
}

// A cache's size such as "2048K", in bytes; 0 when it is none.
inline int32_t cacheSize(std::string_view text) {
  constexpr int64_t kMost = INT32_MAX;
  const int64_t count = std::clamp(cutNumber(text), int64_t(0), kMost);
  constexpr std::string_view kUnits = "KMG";  // 2^10, 2^20, 2^30
  const size_t unit = text.empty() ? kUnits.npos : kUnits.find(text[0]);
  return int32_t(std::min(unit == kUnits.npos ? count : count << (10 * (unit + 1)), kMost));
}

// The processors that so much time in every period keeps busy, a begun one as a whole one.
inline int32_t processorsFor(int64_t quota, int64_t period) {
  if (quota < 1 || period < 1) return kMostThreads;  // "max" and -1 stand for no quota
  return int32_t(std::min<int64_t>((quota - 1) / period + 1, kMostThreads));
}

// The processors that the quotas of one control group and of all groups above it grant. `root` is where the groups'
// hierarchy is mounted, `group` the path in it; `unified` tells the second version's files from the first one's.
template <class ReadFile>
int32_t processorsOfGroup(std::string_view root, std::string_view group, bool unified, const ReadFile& readFile) {
  char path[4096], text[64];
  int32_t granted = kMostThreads;
  // From a process whose group lies outside the part that it sees, the group's path leads out of the mount.
  if (group.find("/..") != group.npos) group.remove_suffix(group.size());
  while (!group.empty() && group.back() == '/') group.remove_suffix(1);
  if (root.size() + group.size() + sizeof "/cpu.cfs_period_us" > sizeof path) return granted;
  std::memcpy(path, root.data(), root.size());
  std::memcpy(path + root.size(), group.data(), group.size());
  for (size_t end = root.size() + group.size();; --end) {
    const auto read = [&](const char* name) {
      std::strcpy(path + end, name);
      return readFile(path, text, sizeof text);
    };
    if (unified) {
      std::string_view limit = read("/cpu.max");
      const int64_t quota = cutNumber(limit);
      cut(limit, ' ');
      granted = std::min(granted, processorsFor(quota, cutNumber(limit)));
    } else if (std::string_view quotaText = read("/cpu.cfs_quota_us"); !quotaText.empty()) {
      const int64_t quota = cutNumber(quotaText);
      std::string_view period = read("/cpu.cfs_period_us");
      granted = std::min(granted, processorsFor(quota, cutNumber(period)));
    }
    if (end == root.size()) return granted;
    while (path[end - 1] != '/') --end;
  }
}

// The processors that the quotas of this process's control groups grant; kMostThreads without a quota.
// readFile(path, buffer, size) gives a file's first `size` bytes, or nothing.
template <class ReadFile>
int32_t processorsOfQuotas(const ReadFile& readFile) {
  char buffer[4096];
  std::string_view groups = readFile("/proc/self/cgroup", buffer, sizeof buffer);
  groups.remove_suffix(groups.size() - std::min(groups.rfind('\n') + 1, groups.size()));  // whole lines only
  int32_t granted = kMostThreads;
  while (!groups.empty()) {
    // hierarchy:controllers:/path; the unified hierarchy names no controllers.
    std::string_view group = cut(groups, '\n');
    cut(group, ':');
    std::string_view controllers = cut(group, ':');
    if (group.empty() || group[0] != '/') continue;
    if (controllers.empty()) granted = std::min(granted, processorsOfGroup("/sys/fs/cgroup", group, true, readFile));
    while (!controllers.empty())
      if (cut(controllers, ',') == "cpu")
        granted = std::min(granted, processorsOfGroup("/sys/fs/cgroup/cpu", group, false, readFile));
  }
  return granted;
}

}  // namespace qelcore

#endif
