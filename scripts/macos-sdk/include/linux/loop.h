// Linux only: macOS has no <linux/loop.h>.
#error "<linux/loop.h> does not exist on macOS"
