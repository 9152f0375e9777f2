// Linux only: macOS has no <sys/prctl.h>.
#error "<sys/prctl.h> does not exist on macOS"
