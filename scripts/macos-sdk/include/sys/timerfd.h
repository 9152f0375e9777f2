// Linux only: macOS has no <sys/timerfd.h>.
#error "<sys/timerfd.h> does not exist on macOS"
