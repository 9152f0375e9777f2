// Linux only: macOS has no <mntent.h>.
#error "<mntent.h> does not exist on macOS"
