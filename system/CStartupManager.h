// The launchd items that start the service at boot and the main application
// at every user's login, and on Linux the systemd unit that starts the
// service at boot.  Writing or removing them takes effect at the next boot
// or login; nothing is loaded or unloaded here.
#ifndef ZQ_SYSTEM_CSTARTUPMANAGER_H_
#define ZQ_SYSTEM_CSTARTUPMANAGER_H_

#include <string>

class CStartupManager {
 public:
  static constexpr char kLaunchDaemonFile[] = "/Library/LaunchDaemons/com.zq.BitlockerServices.plist";
  static constexpr char kLaunchAgentFile[] = "/Library/LaunchAgents/com.zq.Norvane.plist";

  // The items of the machine itself, under "/".
  static CStartupManager* GetInstance();

  // Items under `rootFolder` ("" for the machine's own /Library and /etc).
  explicit CStartupManager(const std::string& rootFolder);
  CStartupManager(const CStartupManager&) = delete;
  CStartupManager& operator=(const CStartupManager&) = delete;

  // Writes both items for the application bundle at `bundlePath` (given
  // without a trailing slash), and has the service manager start the
  // bundle's service at boot (platform::EnableBootService).  Failures leave
  // earlier files in place and are not reported.
  void SetStartup(const std::string& bundlePath);
  void CreateLaunchDaemon(const std::string& bundlePath);
  void CreateLaunchAgent(const std::string& bundlePath);

  // Undoes the service manager's start at boot, then removes the daemon's
  // file, then the agent's; returns the result of removing the agent's
  // file alone (0, or -1 with errno set).
  int CancelStartup();
  int RemoveLaunchDaemon();
  int RemoveLaunchAgent();

 private:
  const std::string rootFolder_;
  const std::string daemonPath_;
  const std::string agentPath_;
};

#endif  // ZQ_SYSTEM_CSTARTUPMANAGER_H_
