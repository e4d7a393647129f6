#include "homebrew/AskpassChannel.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace {

std::string failure(const std::string& path, int error)
{
    return "The folder " + path + " cannot be used: " + std::strerror(error);
}

// Decides whether an existing entry may hold the socket; an empty text means it may.
std::string refusal(const std::string& path, const struct stat& info, uid_t uid)
{
    if (!S_ISDIR(info.st_mode)) {
        return "The folder " + path + " cannot be used: it is not a folder";
    }
    if (info.st_uid != uid) {
        return "The folder " + path + " cannot be used: it belongs to another user";
    }
    if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", unsigned(info.st_mode & 07777));
        return "The folder " + path + " cannot be used: other users have access to it (mode " + mode + ")";
    }
    return {};
}

} // namespace

AskpassChannel::Location AskpassChannel::runtimeFolder(uid_t uid, Creation creation, const std::string& runUserBase,
                                                       const std::string& temporaryBase)
{
    const std::string id = std::to_string(uid);
    struct stat info {};

    const std::string runUser = runUserBase + "/" + id;
    if (::lstat(runUser.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == uid) {
        return {runUser, {}};
    }

    const std::string folder = temporaryBase + "/works.tessel.corvel-" + id;
    if (::lstat(folder.c_str(), &info) != 0) {
        if (errno != ENOENT || creation == Creation::Never) {
            return {{}, failure(folder, errno)};
        }
        // Another process of the user may create it at the same moment; the check below then judges its folder.
        if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            return {{}, failure(folder, errno)};
        }
        if (::lstat(folder.c_str(), &info) != 0) {
            return {{}, failure(folder, errno)};
        }
    }
    if (std::string reason = refusal(folder, info, uid); !reason.empty()) {
        return {{}, std::move(reason)};
    }
    return {folder, {}};
}

AskpassChannel::Location AskpassChannel::socketPath(uid_t uid, Creation creation)
{
    Location folder = runtimeFolder(uid, creation);
    if (folder.ok()) {
        folder.path += "/";
        folder.path += portName;
    }
    return folder;
}
