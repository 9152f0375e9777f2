#include "engine/Credential.h"

#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/KeyDerivation.h"

namespace bitlocker {

Credential Credential::Password(std::string text) { return Credential(Kind::kPassword, std::move(text)); }

Credential Credential::RecoveryPassword(std::string text) {
  return Credential(Kind::kRecoveryPassword, std::move(text));
}

Credential Credential::StartupKeyFile(std::string path) {
  return Credential(Kind::kStartupKeyFile, std::move(path));
}

Credential Credential::ClearKey() { return Credential(Kind::kClearKey, std::string()); }

Credential Credential::FromText(const std::string& text) {
  if (text.empty()) return ClearKey();
  struct stat st;
  // Whether the user may read it is for the reading to tell, with the
  // user's rights: a file they may not read unlocks nothing.
  if (::stat(text.c_str(), &st) == 0 && S_ISREG(st.st_mode)) return StartupKeyFile(text);
  if (HasRecoveryPasswordShape(text)) return RecoveryPassword(text);
  return Password(text);
}

Credential& Credential::operator=(const Credential& other) {
  if (this != &other) {
    Wipe();
    kind_ = other.kind_;
    text_ = other.text_;
  }
  return *this;
}

Credential::~Credential() { Wipe(); }

void Credential::Wipe() {
  if (!text_.empty()) OPENSSL_cleanse(&text_[0], text_.size());
  text_.clear();
}

const char* CredentialKindName(Credential::Kind kind) {
  switch (kind) {
    case Credential::Kind::kClearKey:
      return "clear key";
    case Credential::Kind::kPassword:
      return "password";
    case Credential::Kind::kRecoveryPassword:
      return "recovery password";
    case Credential::Kind::kStartupKeyFile:
      return "startup key file";
  }
  return "credential";
}

}  // namespace bitlocker
