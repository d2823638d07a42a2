// Reading folders for the walk: one getdents64 pass and one statx per entry, relative to the
// folder's descriptor (never through a full path, so depth is unlimited), plus clone attributes
// where the volume layout asks for them. Reading may run ahead of the walk on other threads; the
// walk itself always consumes the folders in pre-order, so results never depend on the threads.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/volume_layout.h"

namespace tw {

// An open descriptor, closed with its last owner.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();
  int get() const { return fd_; }

 private:
  int fd_;
};

// One entry of a folder with its metadata.
struct DirEntry {
  uint32_t nameOffset = 0;
  uint32_t nameLength = 0;
  int32_t error = 0;   // errno when the metadata could not be read
  int32_t clone = -1;  // index into DirListing::clones, or -1
  uint32_t mode = 0;
  uint32_t linkCount = 0;
  uint64_t allocatedSize = 0;  // st_blocks * 512
  uint64_t fileSize = 0;       // logical length
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t mountID = 0;
  double modificationDate = 0;

  bool isDirectory() const { return (mode & S_IFMT) == S_IFDIR; }
  bool isSymbolicLink() const { return (mode & S_IFMT) == S_IFLNK; }
  bool isRegularFile() const { return (mode & S_IFMT) == S_IFREG; }
};

// What the walk does with an entry, decided as soon as its folder has been read.
enum class EntryDisposition : uint8_t {
  Unreadable,  // its metadata could not be read
  LeftOut,     // symbolic link, other mount, excluded, or hidden by the system-disk rules
  Package,     // a skipped package: counted and fingerprinted, no node, not entered
  Item,        // counted; a folder is entered
};

struct DirListing;

// Decides the disposition of every entry of a folder just read. It runs on the reading threads,
// so it must depend on nothing but its arguments and settings fixed for the walk.
class EntryClassifier {
 public:
  virtual ~EntryClassifier() = default;
  virtual void classify(const std::string& folderPath, DirListing& listing) const = 0;
};

// The entries of one folder, in the order the file system lists them.
struct DirListing {
  int error = 0;  // errno when the folder could not be opened or listed
  std::shared_ptr<FileDescriptor> descriptor;
  std::string names;  // NUL-terminated names, addressed by DirEntry::nameOffset
  std::vector<DirEntry> entries;
  std::vector<CloneAttributes> clones;
  std::vector<EntryDisposition> dispositions;  // per entry, when read for a walk

  const char* name(const DirEntry& e) const { return names.data() + e.nameOffset; }
  std::string_view nameView(const DirEntry& e) const { return {name(e), e.nameLength}; }
};

struct ReadOptions {
  const VolumeLayout* layout = nullptr;
  bool probeClones = false;  // ask the layout for clone attributes of regular files
};

// Reads the folder `name` inside the open folder `parent` (or `name` itself when parent is null).
void readDirectory(const FileDescriptor* parent, const std::string& name,
                   const ReadOptions& options, DirListing& out);

// Reads folders ahead of the walk on a few threads. Each folder read is classified at once and
// the folders the walk will enter are queued; the newest are read first, which follows the walk's
// pre-order. The walk takes each listing when it gets there, reading it itself when no thread has
// started on it, so it never waits for a thread that is held back. At most `maxReady` listings
// wait to be taken, which bounds memory and open descriptors.
class ListingPrefetcher {
 public:
  struct Slot;
  using Ticket = std::shared_ptr<Slot>;

  ListingPrefetcher(int threads, ReadOptions options, const EntryClassifier& classifier,
                    std::size_t maxReady = 2048);
  ~ListingPrefetcher();
  ListingPrefetcher(const ListingPrefetcher&) = delete;
  ListingPrefetcher& operator=(const ListingPrefetcher&) = delete;

  // The root folder of a walk, read when taken.
  Ticket root(const std::string& path);
  // The listing with its dispositions; `children` receives, per entry, the ticket of each folder
  // to enter (empty elsewhere).
  std::unique_ptr<DirListing> take(const Ticket& ticket, std::vector<Ticket>& children);

 private:
  void work();
  void fill(Slot& slot);

  ReadOptions options_;
  const EntryClassifier& classifier_;
  const std::size_t maxReady_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  std::vector<Ticket> stack_;
  std::size_t ready_ = 0;
  std::size_t idle_ = 0;      // threads waiting for work
  bool walkWaiting_ = false;  // the walk waits for a listing being read
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace tw
