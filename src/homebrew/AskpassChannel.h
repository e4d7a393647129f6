// Where the administrator password relay listens and what it answers. Shared, as plain C++ without Qt, by the
// application's relay and by the Askpass helper that sudo runs, which knows nothing but the user's id.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

class AskpassChannel {
public:
    // The socket's file name inside the user's runtime folder.
    static constexpr std::string_view portName = "works.tessel.corvel.askpass";
    // The whole reply when the person cancels; any other reply is the password itself.
    static constexpr std::string_view cancelReply = "___CANCEL___";

    // A path, or the reason there is none.
    struct Location {
        std::string path;
        std::string error;

        bool ok() const { return error.empty(); }
    };

    enum class Creation { IfMissing, Never };

    // The user's runtime folder: <runUserBase>/<uid> when it is a directory owned by the user, else
    // <temporaryBase>/works.tessel.corvel-<uid>, made with mode 0700 when missing and creation allows. That one is
    // refused when it is not a plain directory, belongs to another user or lets group or others in, because
    // anyone can plant it in a shared temporary folder. The bases move only for tests.
    static Location runtimeFolder(uid_t uid, Creation creation = Creation::IfMissing,
                                  const std::string& runUserBase = "/run/user",
                                  const std::string& temporaryBase = "/tmp");

    // <runtime folder>/works.tessel.corvel.askpass.
    static Location socketPath(uid_t uid, Creation creation = Creation::IfMissing);
};
