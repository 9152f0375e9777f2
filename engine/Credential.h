// What the user gave to unlock a volume, and how it is told apart: a path of
// a file is a startup key file (read with the user's rights), text shaped
// like a recovery password is one, empty text asks for the clear key,
// anything else is a password.
#ifndef ZQ_ENGINE_CREDENTIAL_H_
#define ZQ_ENGINE_CREDENTIAL_H_

#include <string>

namespace bitlocker {

class Credential {
 public:
  enum class Kind { kClearKey, kPassword, kRecoveryPassword, kStartupKeyFile };

  static Credential Password(std::string text);
  static Credential RecoveryPassword(std::string text);
  static Credential StartupKeyFile(std::string path);
  static Credential ClearKey();

  // Classifies the text the library is given.
  static Credential FromText(const std::string& text);

  Credential(const Credential& other) = default;
  Credential& operator=(const Credential& other);
  ~Credential();

  Kind kind() const { return kind_; }
  // The password, the recovery password or the file's path.
  const std::string& text() const { return text_; }

 private:
  Credential(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}
  void Wipe();

  Kind kind_;
  std::string text_;
};

const char* CredentialKindName(Credential::Kind kind);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CREDENTIAL_H_
