#include "system/CFuseInstallerHelper.h"

#include <string>

#include "system/CDevLogs.h"
#include "system/MainBundle.h"
#include "system/TaskWrapper.h"
#include "util/ShellQuoting.h"

void CFuseInstallerHelper::FuseInstall() {
  CDevLogs::Instance()->WriteLog("fuseInstall");
  const std::string package = MainBundlePath() + "/Contents/MacOS/installer.pkg";
  // Quoted whole, so that blanks, quotes or dollar signs in the bundle path
  // reach the installer as part of the one path.
  const std::string commandLine = "installer -pkg " + SingleQuoted(package) + " -target /";
  TaskWrapper::runScript(commandLine);
}
