#include "GlobalDefaults.h"

#include "HXProductPaths.h"
#include "HXSystemLog.h"

#include <QSettings>
#include <QStandardPaths>

namespace {

const QString kOrganisation = QStringLiteral("talvorn");

// "tld.organisation.Application" and "Application" alike name a file of
// the organisation's folder; any application is the organisation's own file.
QString relativeFile(const QString &applicationID)
{
    if (applicationID.isEmpty())
        return kOrganisation + QStringLiteral(".conf");
    const QStringList parts = applicationID.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    const QString organisation = parts.size() >= 2 ? parts.at(parts.size() - 2) : kOrganisation;
    return organisation + QLatin1Char('/') + parts.value(parts.size() - 1) +
           QStringLiteral(".conf");
}

QStringList systemFolders()
{
    QStringList folders =
        qEnvironmentVariable("XDG_CONFIG_DIRS").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (folders.isEmpty())
        folders.append(QStringLiteral("/etc/xdg"));
    for (QString &folder : folders)
        folder = HXProductPaths::map(folder);
    return folders;
}

QString refusal(QSettings::Status status)
{
    return status == QSettings::AccessError ? QStringLiteral("access refused")
                                            : QStringLiteral("the file could not be read");
}

} // namespace

QStringList GlobalDefaults::preferencesFiles(const QString &applicationID, User user)
{
    const QString file = relativeFile(applicationID);
    if (user == User::Current)
        return {QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                QLatin1Char('/') + file};
    QStringList files;
    for (const QString &folder : systemFolders())
        files.append(folder + QLatin1Char('/') + file);
    return files;
}

QVariant GlobalDefaults::copyCFObjectForGlobalKey(const QString &key, const QString &applicationID,
                                                  User user)
{
    for (const QString &file : preferencesFiles(applicationID, user)) {
        const QSettings settings(file, QSettings::NativeFormat);
        const QVariant value = settings.value(key);
        if (value.isValid())
            return value;
    }
    return {};
}

bool GlobalDefaults::isGlobalKeySet(const QString &key, const QString &applicationID)
{
    for (const QString &file : preferencesFiles(applicationID, User::Any)) {
        if (QSettings(file, QSettings::NativeFormat).allKeys().contains(key))
            return true;
    }
    return false;
}

bool GlobalDefaults::setCFObject(const QVariant &value, const QString &key,
                                 const QString &applicationID, User user)
{
    const QString file = preferencesFiles(applicationID, user).constFirst();
    QSettings settings(file, QSettings::NativeFormat);
    const QVariant before = settings.value(key);
    const auto put = [&settings, &key](const QVariant &v) {
        if (v.isValid())
            settings.setValue(key, v);
        else
            settings.remove(key);
    };
    put(value);
    settings.sync();
    if (settings.status() == QSettings::NoError)
        return true;
    HXSystemLog::write(QStringLiteral("GlobalDefaults: could not write \"%1\" to %2: %3")
                           .arg(key, file, refusal(settings.status())));
    // QSettings keeps a change it could not write for the next reader of
    // the file in this process; put back what the file holds.
    put(before);
    return false;
}
