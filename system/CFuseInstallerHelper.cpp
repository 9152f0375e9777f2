#include "CFuseInstallerHelper.h"

#include <string>

#include "CDevLogs.h"
#include "Platform.h"
#include "ShellQuoting.h"
#include "TaskWrapper.h"

void CFuseInstallerHelper::FuseInstall() {
  CDevLogs::Instance()->WriteLog("fuseInstall");
  const std::string package = platform::MainBundlePath() + "/Contents/MacOS/installer.pkg";
  // Quoted whole, so that blanks, quotes or dollar signs in the bundle path
  // reach the installer as part of the one path.
  const std::string commandLine = "installer -pkg " + SingleQuoted(package) + " -target /";
  TaskWrapper::runScript(commandLine);
}
