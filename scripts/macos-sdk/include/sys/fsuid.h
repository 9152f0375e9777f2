// Linux only: macOS has no <sys/fsuid.h>.
#error "<sys/fsuid.h> does not exist on macOS"
