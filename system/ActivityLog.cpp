#include "system/ActivityLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <map>
#include <optional>

#include "platform/Folders.h"
#include "system/CDevLogs.h"

namespace {

constexpr size_t kTimeStart = sizeof "[Zq Norvane]" - 1;
constexpr size_t kTimeLength = 19;
constexpr size_t kMessageStart = kTimeStart + kTimeLength + 4;

std::string Quoted(const std::string& value) {
  std::string out = "\"";
  for (unsigned char c : value) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

// Reads a quoted value starting at text[*at]; *at ends past it.
std::optional<std::string> Unquoted(const std::string& text, size_t* at) {
  if (*at >= text.size() || text[*at] != '"') return std::nullopt;
  std::string value;
  for (size_t i = *at + 1; i < text.size(); ++i) {
    if (text[i] == '"') {
      *at = i + 1;
      return value;
    }
    if (text[i] != '\\' || i + 1 >= text.size()) {
      value += text[i];
    } else if (text[i + 1] == 'x' && i + 3 < text.size()) {
      value += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else {
      value += text[++i];
    }
  }
  return std::nullopt;
}

// The fields of a message after "program: ", each key=value.
std::optional<std::map<std::string, std::string>> Fields(const std::string& text) {
  std::map<std::string, std::string> fields;
  size_t at = 0;
  while (at < text.size()) {
    const size_t equals = text.find('=', at);
    if (equals == std::string::npos) return std::nullopt;
    const std::string key = text.substr(at, equals - at);
    at = equals + 1;
    if (at < text.size() && text[at] == '"') {
      std::optional<std::string> value = Unquoted(text, &at);
      if (!value) return std::nullopt;
      fields[key] = *value;
    } else {
      const size_t end = text.find(' ', at);
      fields[key] = text.substr(at, end - at);
      at = end == std::string::npos ? text.size() : end;
    }
    if (at < text.size() && text[at++] != ' ') return std::nullopt;
  }
  return fields;
}

std::optional<Activity> ParseLine(std::string line) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const size_t colon = line.find(": ", kMessageStart);
  if (line.size() < kMessageStart || line.compare(0, kTimeStart, "[Zq Norvane]") != 0 || colon == std::string::npos)
    return std::nullopt;
  std::optional<std::map<std::string, std::string>> fields = Fields(line.substr(colon + 2));
  if (!fields || fields->count("status") == 0) return std::nullopt;
  Activity activity;
  activity.program = line.substr(kMessageStart, colon - kMessageStart);
  activity.device = (*fields)["device"];
  activity.mountPoint = (*fields)["mount-point"];
  activity.result = (*fields)["result"];
  activity.report = (*fields)["report"];
  activity.time = line.substr(kTimeStart, kTimeLength);
  activity.status = std::stoi((*fields)["status"]);
  return activity;
}

// A line another program, or a torn write, garbled is passed over.
std::optional<Activity> ParseLineOrNothing(const std::string& line) {
  try {
    return ParseLine(line);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// The log's folder, made for root if missing; whether it is root's alone,
// so that nobody else can put anything in the log's place.
bool RootsOwnFolder(const std::string& folder) {
  if (mkdir(folder.c_str(), 0755) == 0) chmod(folder.c_str(), 0755);
  struct stat info;
  return lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == 0 &&
         (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

std::string ActivityMessage(const Activity& activity) {
  std::string message = activity.program + ": device=" + Quoted(activity.device);
  if (!activity.mountPoint.empty()) message += " mount-point=" + Quoted(activity.mountPoint);
  return message + " status=" + std::to_string(activity.status) + " result=" + Quoted(activity.result) +
         " report=" + Quoted(activity.report);
}

bool AppendActivity(const Activity& activity) {
  const std::string path = platform::ActivityLogPath();
  if (geteuid() != 0 || !RootsOwnFolder(path.substr(0, path.rfind('/')))) return false;
  const int fd = OpenOwnLogFile(path);
  if (fd < 0) return false;
  const std::string message = ActivityMessage(activity);
  std::string line;
  CDevLogs::FormatLine(message.data(), message.size(), &line);
  const bool written = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  close(fd);
  return written;
}

std::vector<Activity> ReadActivities(const std::string& path, long long offset) {
  std::ifstream log(path, std::ios::binary);
  if (offset > ActivityLogEnd(path)) offset = 0;
  log.seekg(offset);
  std::vector<Activity> activities;
  for (std::string line; std::getline(log, line);)
    if (std::optional<Activity> activity = ParseLineOrNothing(line)) activities.push_back(std::move(*activity));
  return activities;
}

long long ActivityLogEnd(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : 0;
}
