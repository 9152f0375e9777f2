// zqctl status: whether the service runs and since when, whom it serves,
// and every volume the mounter serves, read from the machine itself;
// nothing is sent to the service.
#ifndef ZQ_TOOLS_ZQCTL_ZQCTLSTATUS_H_
#define ZQ_TOOLS_ZQCTL_ZQCTLSTATUS_H_

// Prints the status, as text or as one JSON object; returns kZqctlSuccess
// while the service runs, kZqctlNoService when it does not.
int PrintStatus(bool json);

#endif  // ZQ_TOOLS_ZQCTL_ZQCTLSTATUS_H_
