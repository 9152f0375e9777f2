// Linux only: macOS has no <linux/magic.h>.
#error "<linux/magic.h> does not exist on macOS"
