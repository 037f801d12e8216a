#pragma once

#include "HXInstallManager.h" // HXError

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

inline const QString HXOrvexErrorDomain = QStringLiteral("com.talvorn.OrvexErrorDomain");

// The application's own small store: an SQLite file "Orvex.storedata" with a
// table per entity of the data model. Made on first use; a damaged file is
// deleted and made anew without asking.
class HXPersistentStore
{
public:
    static const QStringList kEntityNames;
    static const QStringList kEntityKeys;

    // The store in `folder` (the XDG data folder's "Orvex" by default). The
    // errors the user must see come back in *error.
    static std::unique_ptr<HXPersistentStore> open(const QString &folder, HXError *error);
    static QString defaultFolder();
    ~HXPersistentStore();

    QString path() const { return m_path; }
    QSqlDatabase database() const;
    // Whether anything was written since the last save.
    bool hasChanges() const { return m_hasChanges; }
    // Commits what is pending; false with *error when the file refuses.
    bool save(HXError *error);
    // One row of an entity (for the data the application keeps).
    bool insert(const QString &entity, const QString &name, const QString &description, HXError *error);
    qint64 count(const QString &entity) const;

private:
    HXPersistentStore(QString connection, QString path);
    bool addStore(QString *why);

    QString m_connection;
    QString m_path;
    bool m_hasChanges = false;
};
