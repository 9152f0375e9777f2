// Linux only: macOS has no <sys/statfs.h>.
#error "<sys/statfs.h> does not exist on macOS"
