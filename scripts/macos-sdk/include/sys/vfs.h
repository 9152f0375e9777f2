// Linux only: macOS has no <sys/vfs.h>.
#error "<sys/vfs.h> does not exist on macOS"
