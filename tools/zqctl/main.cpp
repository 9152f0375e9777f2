// zqctl: talks to the service as one of its client applications, so that
// users, testers and administrators can drive every command from a shell.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "CLibPipeConnectionCreator.h"
#include "CPipeDataWrapper.h"
#include "CredentialInput.h"
#include "FifoOwner.h"
#include "PipeFlags.h"
#include "ZqctlAnswer.h"
#include "ZqctlRequest.h"

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

void Report(const ZqctlRequest& request, const CCommandDataWrapper<char>* answer, const ZqctlOutcome& outcome) {
  if (request.json) {
    std::printf("%s\n", AnswerJson(request, answer, outcome).c_str());
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

int Run(const ZqctlRequest& request) {
  for (const char* path : {request.channel.toClient, request.channel.toService}) {
    const std::string refusal = FifoOwnerRefusal(path);
    if (!refusal.empty()) {
      Report(request, nullptr, {kZqctlNoService, refusal});
      return kZqctlNoService;
    }
  }
  BlockPrinter printer(request.listen, request.json);
  std::unique_ptr<ILibPipeClient> client(CLibPipeConnectionCreator::createLibPipeClient(&printer));
  client->addConnector(request.channel.name, request.channel.toClient, kPipeReadFlags | kPipeCreateFlag,
                       request.channel.toService, kPipeWriteFlags | kPipeCreateFlag);
  IIPCConnector* connector = client->getConnector();

  if (request.listen) {
    for (;;) pause();
  }

  CCommandDataWrapper<char> record = request.record;
  CPipeDataWrapper message;
  message.InitializeWithCmdDataWrapper(&record);
  ZqctlOutcome outcome{kZqctlSuccess, "sent"};
  const CCommandDataWrapper<char>* answer = nullptr;
  unsigned char reply[kBlockSize] = {};
  CCommandDataWrapper<char> received;
  const bool answered = record.type == eCOMMAND_CHECK_CONNECTION || record.type == eCOMMAND_BITLOCKER_CHECK ||
                        record.type == eCOMMAND_BITLOCKER_MOUNT || record.type == eCOMMAND_BITLOCKER_EXPLORER;
  if (!answered) {
    outcome.status = SendWithoutAnswer(connector, request, message);
    if (outcome.status == kZqctlNoService) outcome.message = "no service: the channel could not be opened";
  } else if (!connector->SendMsg_sync(message.getMessage(), kBlockSize, reply, kBlockSize, request.timeout)) {
    outcome = {kZqctlNoService, "no service: the channel could not be opened"};
  } else {
    std::memcpy(&received, reply, sizeof received);
    if (received.type == 0) {
      outcome = {kZqctlTimeout, "timeout: the service did not answer within " + std::to_string(request.timeout) + " s"};
    } else {
      outcome = DescribeAnswer(request, received);
      answer = &received;
    }
  }
  Report(request, answer, outcome);
  client->removeConnector();
  return outcome.status;
}

}  // namespace

int main(int argc, char** argv) {
  ZqctlRequest request;
  std::string error;
  if (!ParseZqctlArguments(std::vector<std::string>(argv + 1, argv + argc), &request, &error)) {
    std::fprintf(stderr, "zqctl: %s\n", error.c_str());
    return kZqctlUsage;
  }
  if (request.help) {
    std::printf("%s", ZqctlUsage(request.subcommand).c_str());
    return kZqctlSuccess;
  }
  if (request.needsCredential) {
    std::optional<std::string> credential = ReadCredential("Credential: ");
    if (!credential) {
      std::fprintf(stderr, "zqctl: no credential could be read from standard input\n");
      return kZqctlUsage;
    }
    const bool fits = SetCredential(*credential, &request, &error);
    WipeCredential(&*credential);
    if (!fits) {
      std::fprintf(stderr, "zqctl: %s\n", error.c_str());
      return kZqctlUsage;
    }
  }
  return Run(request);
}
