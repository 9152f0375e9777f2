// What zqctl is asked to do: the command line turned into one command
// record, checked before anything is sent.
#ifndef ZQ_TOOLS_ZQCTL_ZQCTLREQUEST_H_
#define ZQ_TOOLS_ZQCTL_ZQCTLREQUEST_H_

#include <string>
#include <vector>

#include "Include/ClientChannels.h"
#include "Include/CommandData.h"

// Exit statuses of zqctl.
enum ZqctlStatus : int {
  kZqctlSuccess = 0,
  kZqctlFailure = 1,     // the service answered, and the answer is a failure
  kZqctlUsage = 2,       // bad command line or input; nothing was sent
  kZqctlNoService = 3,   // the service is not running
  kZqctlTimeout = 4,     // the service did not answer in time
  kZqctlPermission = 5,  // the service's channel is not this user's to use
};

struct ZqctlRequest {
  ClientChannel channel = kMainUIChannel;
  unsigned timeout = 10;
  bool json = false;
  bool help = false;
  bool version = false;
  std::string subcommand;
  std::vector<std::string> operands;
  std::string device;      // check, unmount, mount, explore: the device's name, without "/dev/"
  std::string mountPoint;  // mount: the absolute path the mounter gets
  std::string bundle;      // startup on: the bundle's absolute path
  bool needsCredential = false;  // read from standard input before sending
  bool listen = false;
  bool status = false;  // nothing is sent: zqctl looks at the machine
  CCommandDataWrapper<char> record{};
};

// Parses argv; false with a message in *error for bad input.  A usage
// error names the wrong word, then gives the usage line.
bool ParseZqctlArguments(const std::vector<std::string>& arguments, ZqctlRequest* request, std::string* error);

// Puts the credential into the record's credential field; false with a
// message when it does not fit.
bool SetCredential(const std::string& credential, ZqctlRequest* request, std::string* error);

// The usage text: the tool's, or one subcommand's.
std::string ZqctlUsage(const std::string& subcommand);

#endif  // ZQ_TOOLS_ZQCTL_ZQCTLREQUEST_H_
