// Zq-NorvaneServices: the privileged service.  It keeps one copy running,
// opens the two client channels, installs the FUSE package in the
// background and then sleeps until a client asks it to exit.  All real work
// happens on the channels' reading threads.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Include/ClientChannels.h"
#include "ipc/PipeFlags.h"
#include "platform/Processes.h"
#include "service/CPipeServerWrapper.h"
#include "service/ChannelGuard.h"
#include "system/CFuseInstallerHelper.h"
#include "system/CProcessManager.h"

// True when another process of the service is already running: one of
// root's, as the service always is.
bool IsRunning() { return FindOtherRootProcessNamedLike(kServiceProcessName).has_value(); }

int main(int argc, char**) {
  if (argc == 1 && IsRunning()) return 0;
  {
    // Started with arguments, a new copy takes over from an older one.
    CProcessManager processes;
    processes.KillProcess(kServiceProcessName);
  }

  // The service makes the channels' FIFOs itself, for the user at the
  // machine alone, before it opens any of them.
  ChannelGuard channels({kMainUIChannel.toService, kMainUIChannel.toClient, kFileExplorerChannel.toService,
                         kFileExplorerChannel.toClient});
  channels.Check();
  for (const ClientChannel& channel : {kMainUIChannel, kFileExplorerChannel}) {
    CPipeServerWrapper::getInstance()->addClient(channel.name, channel.toService, kPipeReadFlags, channel.toClient,
                                                 kPipeWriteFlags);
  }
  platform::RunInBackground([] { CFuseInstallerHelper::FuseInstall(); });

  while (CPipeServerWrapper::getInstance()->running) {
    channels.Check();
    sleep(1);
  }
  // The other client's thread may still be running a command (a long
  // mount); it is not waited for.  The FIFOs go as at any exit, children
  // already started run on, and every log line is already on disk.
  CPipeServerWrapper::getInstance()->RemoveFifos();
  std::fflush(nullptr);
  std::_Exit(0);
}
