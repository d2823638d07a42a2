#include "scan/dir_reader.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace tw {

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) close(fd_);
}

namespace {

struct LinuxDirent64 {
  uint64_t d_ino;
  int64_t d_off;
  unsigned short d_reclen;
  unsigned char d_type;
  char d_name[];
};

constexpr unsigned kStatxMask = STATX_BASIC_STATS | STATX_MNT_ID;

}  // namespace

void readDirectory(const FileDescriptor* parent, const std::string& name,
                   const ReadOptions& options, DirListing& out) {
  // O_NONBLOCK: a FIFO swapped in for the folder must fail, never block the walk.
  int fd = openat(parent ? parent->get() : AT_FDCWD, name.c_str(),
                  O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0 && !parent && (errno == ELOOP || errno == ENOTDIR)) {
    // The scan root itself may be a symbolic link to a folder: Linux refuses O_NOFOLLOW with
    // O_DIRECTORY on a link with ENOTDIR, not ELOOP.
    fd = open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
  }
  if (fd < 0) {
    out.error = errno;
    return;
  }
  out.descriptor = std::make_shared<FileDescriptor>(fd);

  struct Pending {
    uint64_t inode;
    uint32_t index;
  };
  thread_local std::vector<char> buffer(1 << 16);
  thread_local std::vector<Pending> order;
  order.clear();
  for (;;) {
    long n = syscall(SYS_getdents64, fd, buffer.data(), buffer.size());
    if (n < 0) {
      out.error = errno;
      break;
    }
    if (n == 0) break;
    // Records take at least 24 bytes: reserve once instead of growing entry by entry.
    out.entries.reserve(out.entries.size() + static_cast<std::size_t>(n) / 24);
    out.names.reserve(out.names.size() + static_cast<std::size_t>(n) / 2);
    for (long offset = 0; offset < n;) {
      auto* d = reinterpret_cast<LinuxDirent64*>(buffer.data() + offset);
      offset += d->d_reclen;
      const char* s = d->d_name;
      if (s[0] == '.' && (s[1] == 0 || (s[1] == '.' && s[2] == 0))) continue;
      DirEntry e;
      e.nameOffset = static_cast<uint32_t>(out.names.size());
      e.nameLength = static_cast<uint32_t>(std::strlen(s));
      out.names.append(s, e.nameLength + 1);
      order.push_back({d->d_ino, static_cast<uint32_t>(out.entries.size())});
      out.entries.push_back(e);
    }
  }
  // Ask for metadata in inode order: on spinning disks that cuts the seeks between inode blocks.
  std::sort(order.begin(), order.end(),
            [](const Pending& a, const Pending& b) { return a.inode < b.inode; });
  for (const Pending& p : order) {
    DirEntry& e = out.entries[p.index];
    struct statx st;
    if (statx(fd, out.name(e), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kStatxMask, &st) != 0) {
      e.error = errno;
      continue;
    }
    e.mode = st.stx_mode;
    e.linkCount = st.stx_nlink;
    e.allocatedSize = st.stx_blocks * 512;
    e.fileSize = st.stx_size;
    e.device = (uint64_t{st.stx_dev_major} << 32) | st.stx_dev_minor;
    e.inode = st.stx_ino;
    e.mountID = (st.stx_mask & STATX_MNT_ID) ? st.stx_mnt_id : 0;
    e.modificationDate = static_cast<double>(st.stx_mtime.tv_sec) + st.stx_mtime.tv_nsec / 1e9;
    if (options.probeClones && e.isRegularFile() && e.allocatedSize > 0) {
      if (auto clone = options.layout->cloneAttributes(fd, out.name(e), st)) {
        e.clone = static_cast<int32_t>(out.clones.size());
        out.clones.push_back(*clone);
      }
    }
  }
}

// --- Reading ahead ----------------------------------------------------------------------------

struct ListingPrefetcher::Slot {
  enum class State { Pending, Reading, Done };
  std::shared_ptr<FileDescriptor> parent;
  std::string name;  // relative to parent, or the full path of a root
  std::string path;
  State state = State::Pending;
  std::unique_ptr<DirListing> listing;
  std::vector<Ticket> children;
};

namespace {
// Every listing waiting to be taken holds its folder open, and so may each of its queued
// subfolders' parents: keep well inside the descriptor limit, raising it where allowed.
std::size_t readyLimitForDescriptors(std::size_t wanted) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::min<std::size_t>(wanted, 64);
  if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < limit.rlim_max) {
    rlimit raised = limit;
    raised.rlim_cur = std::min<rlim_t>(limit.rlim_max, 65536);
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  const std::size_t descriptors =
      limit.rlim_cur == RLIM_INFINITY ? 65536 : static_cast<std::size_t>(limit.rlim_cur);
  return std::clamp<std::size_t>((descriptors > 256 ? descriptors - 256 : 0) / 2, 8, wanted);
}
}  // namespace

ListingPrefetcher::ListingPrefetcher(int threads, ReadOptions options,
                                     const EntryClassifier& classifier, std::size_t maxReady)
    : options_(options),
      classifier_(classifier),
      maxReady_(readyLimitForDescriptors(std::max<std::size_t>(1, maxReady))) {
  for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
}

ListingPrefetcher::~ListingPrefetcher() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    stack_.clear();
  }
  wake_.notify_all();
  for (auto& t : threads_) t.join();
}

ListingPrefetcher::Ticket ListingPrefetcher::root(const std::string& path) {
  auto slot = std::make_shared<Slot>();
  slot->name = path;
  slot->path = path;
  return slot;
}

void ListingPrefetcher::fill(Slot& slot) {
  auto listing = std::make_unique<DirListing>();
  readDirectory(slot.parent.get(), slot.name, options_, *listing);
  slot.parent.reset();
  if (!listing->error) {
    classifier_.classify(slot.path, *listing);
    const std::size_t count = listing->entries.size();
    slot.children.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      const DirEntry& e = listing->entries[i];
      if (listing->dispositions[i] != EntryDisposition::Item || !e.isDirectory()) continue;
      auto child = std::make_shared<Slot>();
      child->parent = listing->descriptor;
      child->name.assign(listing->nameView(e));
      child->path = slot.path;
      if (child->path.back() != '/') child->path.push_back('/');
      child->path.append(child->name);
      slot.children[i] = std::move(child);
    }
  }
  slot.listing = std::move(listing);
  if (threads_.empty()) return;
  std::size_t queued = 0, idle = 0;
  {
    std::lock_guard lock(mutex_);
    for (auto it = slot.children.rbegin(); it != slot.children.rend(); ++it) {
      if (*it) {
        stack_.push_back(*it);
        ++queued;
      }
    }
    idle = idle_;
  }
  // Wake only as many threads as there is new work for; waking costs more than reading a folder.
  for (std::size_t i = 0; i < std::min(queued, idle); ++i) wake_.notify_one();
}

std::unique_ptr<DirListing> ListingPrefetcher::take(const Ticket& ticket,
                                                    std::vector<Ticket>& children) {
  {
    std::unique_lock lock(mutex_);
    // While a thread reads the listing we need, read the next folder in line instead of idling.
    while (ticket->state == Slot::State::Reading) {
      if (!stack_.empty() && ready_ < maxReady_) {
        Ticket other = std::move(stack_.back());
        stack_.pop_back();
        if (other->state != Slot::State::Pending) continue;
        other->state = Slot::State::Reading;
        ++ready_;
        lock.unlock();
        fill(*other);
        lock.lock();
        other->state = Slot::State::Done;
        continue;
      }
      walkWaiting_ = true;
      done_.wait(lock);
      walkWaiting_ = false;
    }
    if (ticket->state == Slot::State::Done) {
      const bool wasFull = ready_-- >= maxReady_;
      children = std::move(ticket->children);
      auto listing = std::move(ticket->listing);
      const bool wake = wasFull && idle_ > 0 && !stack_.empty();
      lock.unlock();
      if (wake) wake_.notify_one();
      return listing;
    }
    ticket->state = Slot::State::Reading;  // ours now; a thread popping it skips it
  }
  fill(*ticket);
  children = std::move(ticket->children);
  return std::move(ticket->listing);
}

void ListingPrefetcher::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (!stopping_ && (stack_.empty() || ready_ >= maxReady_)) {
      ++idle_;
      wake_.wait(lock, [&] { return stopping_ || (!stack_.empty() && ready_ < maxReady_); });
      --idle_;
    }
    if (stopping_) return;
    Ticket slot = std::move(stack_.back());
    stack_.pop_back();
    if (slot->state != Slot::State::Pending) continue;
    slot->state = Slot::State::Reading;
    ++ready_;  // counted from the start, so the bound holds while reading
    lock.unlock();
    fill(*slot);
    lock.lock();
    slot->state = Slot::State::Done;
    if (walkWaiting_) done_.notify_one();
  }
}

}  // namespace tw
