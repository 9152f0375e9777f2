// Linux only: macOS has no <sys/inotify.h>.
#error "<sys/inotify.h> does not exist on macOS"
