// Linux only: macOS has no <linux/fs.h>.
#error "<linux/fs.h> does not exist on macOS"
