// macFUSE's low-level libfuse 3 API (macFUSE 5.2, libfuse 3.17), as far as
// this project uses it.  The session calls and handler types are those of
// libfuse 3 everywhere once macFUSE's Darwin extensions are turned off.
#ifndef ZQ_MACOS_SDK_FUSE3_FUSE_LOWLEVEL_H_
#define ZQ_MACOS_SDK_FUSE3_FUSE_LOWLEVEL_H_

#if !defined(FUSE_USE_VERSION) || FUSE_USE_VERSION < 312
#error "this stand-in declares the API from FUSE_USE_VERSION 312 on"
#endif
#if !defined(FUSE_DARWIN_ENABLE_EXTENSIONS) || FUSE_DARWIN_ENABLE_EXTENSIONS != 0
#error "macFUSE's Darwin extensions change the handlers' types; set FUSE_DARWIN_ENABLE_EXTENSIONS=0"
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

typedef uint64_t fuse_ino_t;
typedef struct fuse_req* fuse_req_t;
struct fuse_session;
struct fuse_loop_config;

struct fuse_args {
  int argc;
  char** argv;
  int allocated;
};
#define FUSE_ARGS_INIT(argc, argv) {argc, argv, 0}
void fuse_opt_free_args(struct fuse_args* arguments);

struct fuse_file_info {
  int32_t flags;
  uint32_t writepage : 1;
  uint32_t direct_io : 1;
  uint32_t keep_cache : 1;
  uint32_t flush : 1;
  uint32_t nonseekable : 1;
  uint32_t flock_release : 1;
  uint32_t cache_readdir : 1;
  uint32_t noflush : 1;
  uint32_t parallel_direct_writes : 1;
  uint32_t padding : 23;
  uint32_t padding2 : 32;
  uint32_t padding3 : 32;
  uint64_t fh;
  uint64_t lock_owner;
  uint32_t poll_events;
  int32_t backing_id;
  uint64_t compat_flags;
  uint64_t reserved[2];
};

struct fuse_conn_info {
  uint32_t proto_major;
  uint32_t proto_minor;
  uint32_t max_write;
  uint32_t max_read;
  uint32_t max_readahead;
  uint32_t capable;
  uint32_t want;
  uint32_t max_background;
  uint32_t congestion_threshold;
  uint32_t time_gran;
};

#define FUSE_SET_ATTR_MODE (1 << 0)
#define FUSE_SET_ATTR_UID (1 << 1)
#define FUSE_SET_ATTR_GID (1 << 2)
#define FUSE_SET_ATTR_SIZE (1 << 3)
#define FUSE_SET_ATTR_ATIME (1 << 4)
#define FUSE_SET_ATTR_MTIME (1 << 5)

struct fuse_entry_param {
  fuse_ino_t ino;
  uint64_t generation;
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

struct fuse_session* fuse_session_new(struct fuse_args* arguments, const struct fuse_lowlevel_ops* operations,
                                      size_t size, void* userData);
int fuse_session_mount(struct fuse_session* session, const char* mountPoint);
void fuse_session_unmount(struct fuse_session* session);
void fuse_session_destroy(struct fuse_session* session);

struct fuse_loop_config* fuse_loop_cfg_create(void);
void fuse_loop_cfg_destroy(struct fuse_loop_config* config);
void fuse_loop_cfg_set_max_threads(struct fuse_loop_config* config, unsigned int threads);
int fuse_session_loop_mt_312(struct fuse_session* session, struct fuse_loop_config* config);
#define fuse_session_loop_mt(session, config) fuse_session_loop_mt_312(session, config)

}

#endif  // ZQ_MACOS_SDK_FUSE3_FUSE_LOWLEVEL_H_
