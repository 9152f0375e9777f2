// Linux only: macOS has no <sys/sysmacros.h>.
#error "<sys/sysmacros.h> does not exist on macOS"
