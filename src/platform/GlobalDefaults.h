#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Preferences by application identifier for every user of this computer, or
// for the current user alone: QSettings files in the system's configuration
// folders ($XDG_CONFIG_DIRS, /etc/xdg when unset; under ORVEX_ROOT when that
// is set) or in the user's ($XDG_CONFIG_HOME). The identifier
// "com.talvorn.OrvexAgent" is the file "talvorn/OrvexAgent.conf" there, the
// file QSettings("talvorn", "OrvexAgent") uses; an empty identifier stands
// for any application, the organisation's "talvorn.conf". A file holds only
// its own keys: nothing falls back to another application or scope. There is
// no host to choose, a file being this computer's.
class GlobalDefaults
{
public:
    enum class User { Any, Current };

    // The value, or an invalid QVariant when the key is not set. For any user
    // the first system folder whose file has the key answers. Numbers and
    // booleans come back as the text QSettings keeps them as.
    static QVariant copyCFObjectForGlobalKey(const QString &key,
                                             const QString &applicationID = QString(),
                                             User user = User::Any);
    // Whether the application's preferences for any user hold the key.
    static bool isGlobalKeySet(const QString &key, const QString &applicationID = QString());
    // Sets the value (an invalid QVariant removes the key) in the first
    // system folder, or the user's, and writes the file out at once. False
    // when the file cannot be written, as the system folders refuse a user
    // who is not root; the refusal goes to the system log.
    static bool setCFObject(const QVariant &value, const QString &key,
                            const QString &applicationID = QString(), User user = User::Any);

    // The files an application's preferences for `user` are read from, in
    // order; writes go to the first.
    static QStringList preferencesFiles(const QString &applicationID, User user);
};
