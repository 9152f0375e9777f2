#include "explorer/CExplorerClient.h"

#include <cctype>
#include <chrono>
#include <cstring>

#include "Include/CPipeDataWrapper.h"
#include "Include/ClientChannels.h"
#include "ipc/CLibPipeConnectionCreator.h"
#include "ipc/FifoOwner.h"
#include "ipc/PipeFlags.h"

namespace {

constexpr uint32_t kServiceThere = 55;

}  // namespace

CExplorerClient::CExplorerClient(FILE* out) : out_(out) {}

CExplorerClient::~CExplorerClient() {
  if (client_) client_->removeConnector();
}

bool CExplorerClient::Connect(std::string* why) {
  for (const char* path : {kFileExplorerChannel.toClient, kFileExplorerChannel.toService}) {
    *why = FifoOwnerRefusal(path);
    if (!why->empty()) return false;
  }
  *why = "the FileExplorer channel could not be made";
  client_.reset(CLibPipeConnectionCreator::createLibPipeClient(this));
  return client_ && client_->addConnector(kFileExplorerChannel.name, kFileExplorerChannel.toClient,
                                          kPipeReadFlags | kPipeCreateFlag, kFileExplorerChannel.toService,
                                          kPipeWriteFlags | kPipeCreateFlag);
}

bool CExplorerClient::ServiceAnswers(unsigned seconds) {
  IIPCConnector* connector = client_ ? client_->getConnector() : nullptr;
  if (connector == nullptr) return false;
  CCommandDataWrapper<char> check{};
  check.type = eCOMMAND_CHECK_CONNECTION;
  CPipeDataWrapper message;
  message.InitializeWithCmdDataWrapper(&check);
  unsigned char reply[kBlockSize] = {};
  if (!connector->SendMsg_sync(message.getMessage(), kBlockSize, reply, kBlockSize, seconds)) return false;
  CCommandDataWrapper<char> answer;
  std::memcpy(&answer, reply, sizeof answer);
  return answer.type == eCOMMAND_RESULT && answer.reply.result == kServiceThere;
}

bool CExplorerClient::WaitForQuit(unsigned seconds) {
  std::unique_lock<std::mutex> lock(mutex_);
  return quitArrived_.wait_for(lock, std::chrono::seconds(seconds), [this] { return quit_; });
}

void CExplorerClient::OnCommand_Reply(IIPCConnector*, _MSG_DATA_PACKAGE* package, unsigned int) {
  CPipeDataWrapper wrapper;
  if (!wrapper.InitializeWithPipeMessage(reinterpret_cast<char*>(package->payload))) return;
  const CCommandDataWrapper<char>& record = *wrapper.getCommandDataWrapper();
  if (record.type != eCOMMAND_TO_FILE_EXPLORER) return;
  const unsigned char byte = record.simple.arg;
  std::fprintf(out_, "forwarded command 11: byte 0x%02x", byte);
  if (std::isprint(byte)) std::fprintf(out_, " '%c'", byte);
  std::fprintf(out_, "\n");
  std::fflush(out_);
  if (byte != kQuitByte) return;
  std::lock_guard<std::mutex> lock(mutex_);
  quit_ = true;
  quitArrived_.notify_all();
}
