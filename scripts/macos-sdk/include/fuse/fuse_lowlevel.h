// macFUSE's low-level libfuse 2 API, as far as this project uses it.
#ifndef ZQ_MACOS_SDK_FUSE_FUSE_LOWLEVEL_H_
#define ZQ_MACOS_SDK_FUSE_FUSE_LOWLEVEL_H_

#if FUSE_USE_VERSION != 26
#error "this stand-in declares the API at FUSE_USE_VERSION 26"
#endif
#if _FILE_OFFSET_BITS != 64
#error "libfuse wants -D_FILE_OFFSET_BITS=64"
#endif

#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

extern "C" {

#define FUSE_ROOT_ID 1

typedef unsigned long fuse_ino_t;
typedef struct fuse_req* fuse_req_t;
struct fuse_session;
struct fuse_chan;

struct fuse_args {
  int argc;
  char** argv;
  int allocated;
};
#define FUSE_ARGS_INIT(argc, argv) {argc, argv, 0}
void fuse_opt_free_args(struct fuse_args* arguments);

struct fuse_file_info {
  int flags;
  unsigned long fh_old;
  int writepage;
  unsigned int direct_io : 1;
  unsigned int keep_cache : 1;
  unsigned int flush : 1;
  unsigned int nonseekable : 1;
  unsigned int flock_release : 1;
  unsigned int padding : 27;
  uint64_t fh;
  uint64_t lock_owner;
};

struct fuse_conn_info {
  unsigned proto_major;
  unsigned proto_minor;
  unsigned async_read;
  unsigned max_write;
  unsigned max_readahead;
  unsigned capable;
  unsigned want;
  unsigned max_background;
  unsigned congestion_threshold;
};

#define FUSE_SET_ATTR_MODE (1 << 0)
#define FUSE_SET_ATTR_UID (1 << 1)
#define FUSE_SET_ATTR_GID (1 << 2)
#define FUSE_SET_ATTR_SIZE (1 << 3)
#define FUSE_SET_ATTR_ATIME (1 << 4)
#define FUSE_SET_ATTR_MTIME (1 << 5)

struct fuse_entry_param {
  fuse_ino_t ino;
  unsigned long generation;
  struct stat attr;
  double attr_timeout;
  double entry_timeout;
};

// The handlers this project serves; the library has more.
struct fuse_lowlevel_ops {
  void (*init)(void* userData, struct fuse_conn_info* connection);
  void (*destroy)(void* userData);
  void (*lookup)(fuse_req_t request, fuse_ino_t parent, const char* name);
  void (*getattr)(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info* file);
  void (*setattr)(fuse_req_t request, fuse_ino_t inode, struct stat* attributes, int toSet,
                  struct fuse_file_info* file);
  void (*open)(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info* file);
  void (*read)(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, struct fuse_file_info* file);
  void (*write)(fuse_req_t request, fuse_ino_t inode, const char* buffer, size_t size, off_t offset,
                struct fuse_file_info* file);
  void (*flush)(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info* file);
  void (*release)(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info* file);
  void (*fsync)(fuse_req_t request, fuse_ino_t inode, int dataOnly, struct fuse_file_info* file);
  void (*readdir)(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, struct fuse_file_info* file);
  void (*fsyncdir)(fuse_req_t request, fuse_ino_t inode, int dataOnly, struct fuse_file_info* file);
  void (*statfs)(fuse_req_t request, fuse_ino_t inode);
};

int fuse_reply_err(fuse_req_t request, int error);
int fuse_reply_entry(fuse_req_t request, const struct fuse_entry_param* entry);
int fuse_reply_attr(fuse_req_t request, const struct stat* attributes, double timeout);
int fuse_reply_open(fuse_req_t request, const struct fuse_file_info* file);
int fuse_reply_buf(fuse_req_t request, const char* buffer, size_t size);
int fuse_reply_write(fuse_req_t request, size_t count);
int fuse_reply_statfs(fuse_req_t request, const struct statvfs* info);
size_t fuse_add_direntry(fuse_req_t request, char* buffer, size_t size, const char* name,
                         const struct stat* attributes, off_t next);
void* fuse_req_userdata(fuse_req_t request);

struct fuse_chan* fuse_mount(const char* mountPoint, struct fuse_args* arguments);
void fuse_unmount(const char* mountPoint, struct fuse_chan* channel);
struct fuse_session* fuse_lowlevel_new(struct fuse_args* arguments, const struct fuse_lowlevel_ops* operations,
                                       size_t size, void* userData);
void fuse_session_add_chan(struct fuse_session* session, struct fuse_chan* channel);
void fuse_session_remove_chan(struct fuse_chan* channel);
int fuse_session_loop_mt(struct fuse_session* session);
void fuse_session_exit(struct fuse_session* session);
void fuse_session_destroy(struct fuse_session* session);

}

#endif  // ZQ_MACOS_SDK_FUSE_FUSE_LOWLEVEL_H_
