// zqctl: talks to the service as one of its client applications, so that
// users, testers and administrators can drive every command from a shell.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "Include/CPipeDataWrapper.h"
#include "ipc/CLibPipeConnectionCreator.h"
#include "ipc/PipeFlags.h"
#include "platform/Folders.h"
#include "tools/zqctl/ZqctlAnswer.h"
#include "tools/zqctl/ZqctlInput.h"
#include "tools/zqctl/ZqctlMachine.h"
#include "tools/zqctl/ZqctlRequest.h"
#include "tools/zqctl/ZqctlStatus.h"
#include "util/CredentialInput.h"
#include "util/ProgramVersion.h"

namespace {

// Blocks that arrive unasked: printed while listening, otherwise dropped.
class BlockPrinter : public IIPCEvent {
 public:
  BlockPrinter(bool print, bool json) : print_(print), json_(json) {}
  void OnCommand_Reply(IIPCConnector*, _MSG_DATA_PACKAGE* package, unsigned int) override {
    if (!print_) return;
    CPipeDataWrapper wrapper;
    if (!wrapper.InitializeWithPipeMessage(reinterpret_cast<char*>(package->payload))) return;
    std::printf("%s\n", DescribeBlock(package->msgId, *wrapper.getCommandDataWrapper(), json_).c_str());
    std::fflush(stdout);
  }

 private:
  bool print_;
  bool json_;
};

void Report(const ZqctlRequest& request, const CCommandDataWrapper<char>* answer, const ZqctlObservation& seen,
            const ZqctlOutcome& outcome) {
  if (request.json) {
    std::printf("%s\n", AnswerJson(request, answer, seen, outcome).c_str());
  } else if (outcome.status == kZqctlSuccess) {
    std::printf("%s\n", outcome.message.c_str());
  } else {
    std::fprintf(stderr, "zqctl: %s\n", outcome.message.c_str());
  }
}

// A command without an answer: retried until the service has opened its
// end of the channel, which it does within a second of the FIFO appearing.
int SendWithoutAnswer(IIPCConnector* connector, const ZqctlRequest& request, CPipeDataWrapper& message) {
  for (unsigned attempt = 0; attempt < request.timeout; ++attempt) {
    if (connector->SendMsg_async(message.getMessage(), kBlockSize, 1)) return kZqctlSuccess;
    sleep(1);
  }
  return kZqctlNoService;
}

// The service writes the startup items as soon as it reads the request;
// they are given five seconds to change, for a machine under load.
ZqctlOutcome StartupOutcome(const ZqctlRequest& request, const StartupItemsState& before) {
  const bool on = request.record.startup.enable != 0;
  struct stat bundle;
  const bool bundleThere = !on || (stat(request.bundle.c_str(), &bundle) == 0 && S_ISDIR(bundle.st_mode));
  const auto describe = [&] { return DescribeStartup(on, bundleThere, before, ReadStartupItems()); };
  ZqctlOutcome outcome = describe();
  for (int tenth = 0; !outcome.settled && tenth < 50; ++tenth) {
    usleep(100 * 1000);
    outcome = describe();
  }
  return outcome;
}

bool Answered(uint32_t type) {
  return type == eCOMMAND_CHECK_CONNECTION || type == eCOMMAND_BITLOCKER_CHECK || type == eCOMMAND_BITLOCKER_MOUNT ||
         type == eCOMMAND_BITLOCKER_EXPLORER;
}

// What an answer is judged against, taken just before the request is sent.
struct Before {
  std::vector<std::string> mounted;  // check: where the device is mounted
  long long activityEnd = 0;         // mount: where the mounter's line will start
  StartupItemsState items;           // startup
};

Before TakeBefore(const ZqctlRequest& request) {
  Before before;
  if (request.record.type == eCOMMAND_BITLOCKER_CHECK) before.mounted = MountPointsOf(request.device);
  if (request.record.type == eCOMMAND_BITLOCKER_MOUNT) before.activityEnd = ActivityLogEnd(platform::ActivityLogPath());
  if (request.record.type == eCOMMAND_SET_STARTUP) before.items = ReadStartupItems();
  return before;
}

// What the service did, as the machine shows it after the answer.
ZqctlObservation Observe(const ZqctlRequest& request, const Before& before) {
  ZqctlObservation seen;
  if (request.record.type == eCOMMAND_BITLOCKER_CHECK) {
    seen.stillMounted = MountPointsOf(request.device);
    const std::vector<std::string>& after = seen.stillMounted;
    for (const std::string& path : before.mounted)
      if (std::find(after.begin(), after.end(), path) == after.end()) seen.unmounted.push_back(path);
  } else if (request.record.type == eCOMMAND_BITLOCKER_MOUNT) {
    seen.activity = MounterActivity(request.device, request.mountPoint, before.activityEnd);
    if (const std::optional<MounterVolume> volume = MounterVolumeAt(request.mountPoint))
      seen.readOnly = volume->readOnly;
  }
  return seen;
}

int Run(const ZqctlRequest& request) {
  ZqctlObservation seen;
  if (const std::optional<ChannelProblem> problem = ChannelRefusal(request.channel)) {
    Report(request, nullptr, seen, {problem->status, problem->message});
    return problem->status;
  }
  BlockPrinter printer(request.listen, request.json);
  std::unique_ptr<ILibPipeClient> client(CLibPipeConnectionCreator::createLibPipeClient(&printer));
  client->addConnector(request.channel.name, request.channel.toClient, kPipeReadFlags, request.channel.toService,
                       kPipeWriteFlags);
  IIPCConnector* connector = client->getConnector();

  if (request.listen) {
    for (;;) pause();
  }

  const Before before = TakeBefore(request);
  CCommandDataWrapper<char> record = request.record;
  CPipeDataWrapper message;
  message.InitializeWithCmdDataWrapper(&record);
  ZqctlOutcome outcome{kZqctlSuccess, "sent"};
  const CCommandDataWrapper<char>* answer = nullptr;
  unsigned char reply[kBlockSize] = {};
  CCommandDataWrapper<char> received;
  if (!Answered(record.type)) {
    outcome.status = SendWithoutAnswer(connector, request, message);
    if (outcome.status == kZqctlNoService) outcome.message = "no service: the channel could not be opened";
    if (outcome.status == kZqctlSuccess && record.type == eCOMMAND_SET_STARTUP)
      outcome = StartupOutcome(request, before.items);
  } else if (!connector->SendMsg_sync(message.getMessage(), kBlockSize, reply, kBlockSize, request.timeout)) {
    outcome = {kZqctlNoService, "no service: the channel could not be opened"};
  } else {
    std::memcpy(&received, reply, sizeof received);
    if (received.type == 0) {
      outcome = {kZqctlTimeout, "timeout: the service did not answer within " + std::to_string(request.timeout) + " s"};
    } else {
      seen = Observe(request, before);
      outcome = DescribeAnswer(request, received, seen);
      answer = &received;
    }
  }
  Report(request, answer, seen, outcome);
  client->removeConnector();
  return outcome.status;
}

}  // namespace

int main(int argc, char** argv) {
  ZqctlRequest request;
  std::string error;
  if (!ParseZqctlArguments(std::vector<std::string>(argv + 1, argv + argc), &request, &error)) {
    Report(request, nullptr, {}, {kZqctlUsage, error});
    return kZqctlUsage;
  }
  if (request.help) {
    std::printf("%s", ZqctlUsage(request.subcommand).c_str());
    return kZqctlSuccess;
  }
  if (request.version) {
    std::printf("zqctl %s\n", kProgramVersion);
    return kZqctlSuccess;
  }
  if (request.status) return PrintStatus(request.json);
  if (request.needsCredential) {
    std::optional<std::string> credential = ReadCredential("Credential: ");
    if (!credential) {
      Report(request, nullptr, {}, {kZqctlUsage, "no credential could be read from standard input"});
      return kZqctlUsage;
    }
    std::string forService = CredentialForService(*credential);
    WipeCredential(&*credential);
    const bool fits = SetCredential(forService, &request, &error);
    WipeCredential(&forService);
    if (!fits) {
      Report(request, nullptr, {}, {kZqctlUsage, error});
      return kZqctlUsage;
    }
  }
  return Run(request);
}
