#include "mounter/CVolumeFuseServer.h"

#include <fcntl.h>
#include <fuse_lowlevel.h>

#include <cerrno>
#include <cstring>
#include <vector>


namespace {

constexpr fuse_ino_t kFolderInode = FUSE_ROOT_ID;
constexpr fuse_ino_t kFileInode = 2;
// Names and attributes never change while the volume is served: the kernel
// may keep them for as long as it likes.
constexpr double kCacheSeconds = 86400;
// Largest read the kernel sends with FUSE_MAX_PAGES (256 pages).
constexpr unsigned kLargestRead = 1024 * 1024;

CVolumeFuseServer* ServerOf(fuse_req_t request) {
  return static_cast<CVolumeFuseServer*>(fuse_req_userdata(request));
}

void ReplyAttributes(fuse_req_t request, fuse_ino_t inode) {
  const struct stat attributes = ServerOf(request)->Attributes(inode);
  fuse_reply_attr(request, &attributes, kCacheSeconds);
}

// No writeback cache is asked for: the kernel sends each write here as it
// happens, and hears that it is done once it is on the device.
void Init(void*, fuse_conn_info* connection) {
  connection->max_readahead = kLargestRead;
  connection->max_write = kLargestRead;
}

void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
  if (parent != kFolderInode || std::strcmp(name, CVolumeFuseServer::kFileName) != 0) {
    fuse_reply_err(request, ENOENT);
    return;
  }
  fuse_entry_param entry{};
  entry.ino = kFileInode;
  entry.attr = ServerOf(request)->Attributes(kFileInode);
  entry.attr_timeout = kCacheSeconds;
  entry.entry_timeout = kCacheSeconds;
  fuse_reply_entry(request, &entry);
}

void GetAttr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
  if (inode != kFolderInode && inode != kFileInode) {
    fuse_reply_err(request, ENOENT);
    return;
  }
  ReplyAttributes(request, inode);
}

void ReadDir(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info*) {
  if (inode != kFolderInode) {
    fuse_reply_err(request, ENOTDIR);
    return;
  }
  struct Entry {
    const char* name;
    fuse_ino_t inode;
  };
  const Entry entries[] = {{".", kFolderInode}, {"..", kFolderInode}, {CVolumeFuseServer::kFileName, kFileInode}};
  std::vector<char> buffer(size);
  size_t used = 0;
  for (off_t next = offset; next < static_cast<off_t>(std::size(entries)); ++next) {
    const struct stat attributes = ServerOf(request)->Attributes(entries[next].inode);
    const size_t length =
        fuse_add_direntry(request, buffer.data() + used, size - used, entries[next].name, &attributes, next + 1);
    if (length > size - used) break;
    used += length;
  }
  fuse_reply_buf(request, buffer.data(), used);
}

// The size cannot change, so neither can a truncating open; owner and mode
// are the mount's.  Times are not kept: the volume has none of its own.
void SetAttr(fuse_req_t request, fuse_ino_t inode, struct stat* wanted, int changes, fuse_file_info*) {
  if (inode != kFolderInode && inode != kFileInode) {
    fuse_reply_err(request, ENOENT);
    return;
  }
  const struct stat now = ServerOf(request)->Attributes(inode);
  if (((changes & FUSE_SET_ATTR_SIZE) && wanted->st_size != now.st_size) ||
      ((changes & FUSE_SET_ATTR_MODE) && (wanted->st_mode & 07777) != (now.st_mode & 07777)) ||
      ((changes & FUSE_SET_ATTR_UID) && wanted->st_uid != now.st_uid) ||
      ((changes & FUSE_SET_ATTR_GID) && wanted->st_gid != now.st_gid)) {
    fuse_reply_err(request, EPERM);
    return;
  }
  fuse_reply_attr(request, &now, kCacheSeconds);
}

// With the page cache the kernel keeps what it read of the file across
// opens (keep_cache).  That is safe while the volume is served: the device
// is the volume's alone (the library opened it, and a mounted file system
// or a held loop device keeps others out), and every write to the volume
// comes through this one inode, where the kernel updates its pages as it
// sends the write here.  Without it (direct_io) each read goes from the
// buffer it was decrypted into straight to the reader's.
void Open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* file) {
  CVolumeFuseServer* server = ServerOf(request);
  if (inode != kFileInode) {
    fuse_reply_err(request, inode == kFolderInode ? EISDIR : ENOENT);
  } else if ((file->flags & O_ACCMODE) != O_RDONLY && !server->writable()) {
    fuse_reply_err(request, EROFS);
  } else if ((file->flags & O_TRUNC) && server->volume()->Size() != 0) {
    fuse_reply_err(request, EPERM);
  } else {
    if (server->directIo()) {
      file->direct_io = 1;
    } else {
      file->keep_cache = 1;
    }
    fuse_reply_open(request, file);
  }
}

void Read(fuse_req_t request, fuse_ino_t, size_t size, off_t offset, fuse_file_info*) {
  // One buffer per serving thread, grown to the largest read it has seen.
  thread_local std::vector<char> buffer;
  if (buffer.size() < size) buffer.resize(size);
  IVolume* volume = ServerOf(request)->volume();
  size_t done = 0;
  while (done < size) {
    const ssize_t got = volume->Read(static_cast<uint64_t>(offset) + done, buffer.data() + done, size - done);
    if (got < 0) {
      if (errno == EINTR) continue;
      fuse_reply_err(request, errno != 0 ? errno : EIO);
      return;
    }
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  fuse_reply_buf(request, buffer.data(), done);
}

void Write(fuse_req_t request, fuse_ino_t, const char* data, size_t size, off_t offset, fuse_file_info*) {
  const ssize_t wrote = ServerOf(request)->Write(static_cast<uint64_t>(offset), data, size);
  if (wrote < 0) {
    fuse_reply_err(request, static_cast<int>(-wrote));
  } else {
    fuse_reply_write(request, static_cast<size_t>(wrote));
  }
}

// close() (flush), fsync and the last close (release) each make what was
// written durable, and fail when the device cannot.
void Flush(fuse_req_t request, fuse_ino_t, fuse_file_info*) {
  fuse_reply_err(request, ServerOf(request)->FlushWrites());
}

void Fsync(fuse_req_t request, fuse_ino_t, int, fuse_file_info*) {
  fuse_reply_err(request, ServerOf(request)->FlushWrites());
}

void StatFs(fuse_req_t request, fuse_ino_t) {
  struct statvfs info{};
  info.f_bsize = 4096;
  info.f_frsize = 4096;
  info.f_blocks = (ServerOf(request)->volume()->Size() + 4095) / 4096;
  info.f_files = 2;
  info.f_namemax = 255;
  fuse_reply_statfs(request, &info);
}

const fuse_lowlevel_ops kOperations = [] {
  fuse_lowlevel_ops operations{};
  operations.init = Init;
  operations.lookup = Lookup;
  operations.getattr = GetAttr;
  operations.readdir = ReadDir;
  operations.setattr = SetAttr;
  operations.open = Open;
  operations.read = Read;
  operations.write = Write;
  operations.flush = Flush;
  operations.release = Flush;
  operations.fsync = Fsync;
  operations.fsyncdir = Fsync;
  operations.statfs = StatFs;
  return operations;
}();

// A mount option value with the characters that separate options escaped.
std::string OptionValue(const std::string& text) {
  std::string escaped;
  for (char c : text) {
    if (c == ',' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace

CVolumeFuseServer::CVolumeFuseServer(IVolume* volume, Options options)
    : volume_(volume), options_(std::move(options)) {}

CVolumeFuseServer::~CVolumeFuseServer() = default;

struct stat CVolumeFuseServer::Attributes(uint64_t inode) const {
  struct stat attributes{};
  attributes.st_ino = inode;
  attributes.st_uid = options_.uid;
  attributes.st_gid = options_.gid;
  if (inode == kFileInode) {
    attributes.st_mode = S_IFREG | options_.fileMode;
    attributes.st_nlink = 1;
    attributes.st_size = static_cast<off_t>(volume_->Size());
    attributes.st_blocks = static_cast<blkcnt_t>((volume_->Size() + 511) / 512);
  } else {
    // Whoever may read the file may look into the folder.
    const mode_t read = options_.fileMode & 0444;
    attributes.st_mode = S_IFDIR | read | (read >> 2);
    attributes.st_nlink = 2;
  }
  attributes.st_blksize = kLargestRead;
  return attributes;
}

ssize_t CVolumeFuseServer::Write(uint64_t offset, const char* data, size_t size) {
  if (!options_.writable) return -EROFS;
  size_t done = 0;
  while (done < size) {
    const ssize_t wrote = volume_->Write(offset + done, data + done, size - done);
    if (wrote <= 0) {
      if (done != 0) break;
      return wrote == 0 ? -ENOSPC : -(errno != 0 ? errno : EIO);
    }
    done += static_cast<size_t>(wrote);
    unflushed_ = true;
  }
  return static_cast<ssize_t>(done);
}

int CVolumeFuseServer::FlushWrites() {
  // A flush that finds nothing to do still waits for one under way, whose
  // writes may include the caller's.
  std::lock_guard<std::mutex> lock(flushing_);
  if (!unflushed_.exchange(false)) return 0;
  if (volume_->Flush() == 0) return 0;
  const int error = errno != 0 ? errno : EIO;
  unflushed_ = true;
  return error;
}

bool CVolumeFuseServer::Mount(const std::string& mountPoint, std::string* error) {
  std::string mountOptions = std::string(options_.writable ? "rw" : "ro") +
                             ",nosuid,nodev,default_permissions,subtype=zq-mounter,fsname=" +
                             OptionValue(options_.sourceName);
  if (options_.allowOther) mountOptions += ",allow_other";
  fuse_ = CFuseSession::Mount(mountPoint, mountOptions, kOperations, this, error);
  return fuse_ != nullptr;
}

int CVolumeFuseServer::Serve() { return fuse_->Serve(); }

