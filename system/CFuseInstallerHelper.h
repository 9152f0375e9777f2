// Installs the FUSE package that travels in the application bundle, with the
// system's `installer` tool.  Run at every start of the service, without
// looking whether the package is installed already.
#ifndef ZQ_SYSTEM_CFUSEINSTALLERHELPER_H_
#define ZQ_SYSTEM_CFUSEINSTALLERHELPER_H_

class CFuseInstallerHelper {
 public:
  // Logs "fuseInstall", runs "installer -pkg <bundle>/Contents/MacOS/installer.pkg
  // -target /" through /bin/sh and returns when it has ended.  Its result is
  // not looked at: a missing package or a refusal fails quietly.
  static void FuseInstall();
};

#endif  // ZQ_SYSTEM_CFUSEINSTALLERHELPER_H_
