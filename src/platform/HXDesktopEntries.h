#pragma once

#include <QString>
#include <QStringList>

// Applications as the desktop knows them: XDG desktop entries ("<id>.desktop")
// in the XDG application folders.
class HXDesktopEntries
{
public:
    // The entry's file, or empty when no application folder holds it.
    static QString find(const QString &applicationId);
    // Starts the entry's command (its field codes dropped); false when the
    // entry is missing or has no command.
    static bool launch(const QString &applicationId);
    // Launches the first of `applicationIds` that is installed; false if none.
    static bool launchFirst(const QStringList &applicationIds);

    // The desktop's power settings: GNOME's, KDE's or Xfce's panel.
    static QStringList powerSettingsIds();
    static bool revealPowerSettings();
};
