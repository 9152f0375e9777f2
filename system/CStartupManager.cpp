#include "system/CStartupManager.h"

#include <cstdio>

#include "platform/BootService.h"
#include "system/XmlPropertyList.h"

namespace {

constexpr char kServiceProgram[] = "/Contents/MacOS/Zq-NorvaneServices";
constexpr char kMainApplicationProgram[] = "/Contents/MacOS/Zq Norvane";

}  // namespace

CStartupManager* CStartupManager::GetInstance() {
  static CStartupManager instance("");
  return &instance;
}

CStartupManager::CStartupManager(const std::string& rootFolder)
    : rootFolder_(rootFolder),
      daemonPath_(rootFolder + kLaunchDaemonFile),
      agentPath_(rootFolder + kLaunchAgentFile) {}

void CStartupManager::SetStartup(const std::string& bundlePath) {
  CreateLaunchDaemon(bundlePath);
  CreateLaunchAgent(bundlePath);
  platform::EnableBootService(rootFolder_, bundlePath + kServiceProgram);
}

void CStartupManager::CreateLaunchDaemon(const std::string& bundlePath) {
  const PropertyList daemon = {
      {"Label", std::string("com.zq.BitlockerServices")},
      {"RunAtLoad", true},
      {"EnableTransactions", true},
      {"ProgramArguments", std::vector<std::string>{bundlePath + kServiceProgram}},
  };
  WritePropertyListAtomically(daemonPath_, daemon);
}

// Only the agent carries LaunchOnlyOnce: launchd starts the main application
// once per login and leaves it alone after it quits.
void CStartupManager::CreateLaunchAgent(const std::string& bundlePath) {
  const PropertyList agent = {
      {"Label", std::string("com.zq.Norvane")},
      {"RunAtLoad", true},
      {"LaunchOnlyOnce", true},
      {"EnableTransactions", true},
      {"ProgramArguments", std::vector<std::string>{bundlePath + kMainApplicationProgram}},
  };
  WritePropertyListAtomically(agentPath_, agent);
}

int CStartupManager::CancelStartup() {
  platform::DisableBootService(rootFolder_);
  std::remove(daemonPath_.c_str());
  return std::remove(agentPath_.c_str());
}

int CStartupManager::RemoveLaunchDaemon() { return std::remove(daemonPath_.c_str()); }

int CStartupManager::RemoveLaunchAgent() { return std::remove(agentPath_.c_str()); }
