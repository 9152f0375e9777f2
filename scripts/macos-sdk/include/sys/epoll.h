// Linux only: macOS has no <sys/epoll.h>.
#error "<sys/epoll.h> does not exist on macOS"
