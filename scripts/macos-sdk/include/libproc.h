// Darwin's <libproc.h>: the process table, one process at a time.
#ifndef ZQ_MACOS_SDK_LIBPROC_H_
#define ZQ_MACOS_SDK_LIBPROC_H_

#include <stdint.h>
#include <sys/param.h>
#include <sys/types.h>

#define PROC_ALL_PIDS 1
#define PROC_PIDTBSDINFO 3

struct proc_bsdinfo {
  uint32_t pbi_flags;
  uint32_t pbi_status;
  uint32_t pbi_xstatus;
  uint32_t pbi_pid;
  uint32_t pbi_ppid;
  uid_t pbi_uid;
  gid_t pbi_gid;
  uid_t pbi_ruid;
  gid_t pbi_rgid;
  uid_t pbi_svuid;
  gid_t pbi_svgid;
  uint32_t rfu_1;
  char pbi_comm[MAXCOMLEN];
  char pbi_name[2 * MAXCOMLEN];
  uint32_t pbi_nfiles;
  uint32_t pbi_pgid;
  uint32_t pbi_pjobc;
  uint32_t e_tdev;
  uint32_t e_tpgid;
  int32_t pbi_nice;
  uint64_t pbi_start_tvsec;
  uint64_t pbi_start_tvusec;
};

#ifdef __cplusplus
extern "C" {
#endif
int proc_listpids(uint32_t type, uint32_t typeinfo, void* buffer, int bufferSize);
int proc_pidinfo(int pid, int flavor, uint64_t argument, void* buffer, int bufferSize);
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_LIBPROC_H_
