#include "HXPersistentStore.h"

#include "HXSystemLog.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QUuid>

const QStringList HXPersistentStore::kEntityNames = {
    QStringLiteral("Test"),        QStringLiteral("Disk"),         QStringLiteral("BatteryTest"),
    QStringLiteral("FileStructuresTest"), QStringLiteral("FilesystemTest"), QStringLiteral("IOErrorTest"),
    QStringLiteral("MemoryTest"),  QStringLiteral("PartitionMap"), QStringLiteral("POSTTest"),
    QStringLiteral("RAIDTest"),    QStringLiteral("SMARTTest"),    QStringLiteral("SurfaceScanTest")};
const QStringList HXPersistentStore::kEntityKeys = {QStringLiteral("entityName"), QStringLiteral("objectID"),
                                                    QStringLiteral("localizedName"),
                                                    QStringLiteral("localizedDescription"),
                                                    QStringLiteral("localizedTimestamp")};

namespace {
constexpr qint64 kNoSuchFile = 260;
}

QString HXPersistentStore::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Orvex");
}

HXPersistentStore::HXPersistentStore(QString connection, QString path)
    : m_connection(std::move(connection))
    , m_path(std::move(path))
{
}

HXPersistentStore::~HXPersistentStore()
{
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
}

QSqlDatabase HXPersistentStore::database() const
{
    return QSqlDatabase::database(m_connection, false);
}

std::unique_ptr<HXPersistentStore> HXPersistentStore::open(const QString &folder, HXError *error)
{
    const QFileInfo info(folder);
    if (info.exists() && !info.isDir()) {
        *error = {HXOrvexErrorDomain, 101,
                  QStringLiteral("Expected a folder to store application data, found a file (%1).").arg(folder)};
        return nullptr;
    }
    if (!info.exists() && !QDir().mkpath(folder)) {
        *error = {HXOrvexErrorDomain, kNoSuchFile,
                  QStringLiteral("The folder “%1” could not be created.").arg(folder)};
        return nullptr;
    }
    const QString connection = QStringLiteral("orvex-store-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    std::unique_ptr<HXPersistentStore> store(
        new HXPersistentStore(connection, folder + QStringLiteral("/Orvex.storedata")));
    QString why;
    if (store->addStore(&why))
        return store;
    // A damaged store is replaced, once, without asking.
    HXSystemLog::write(why);
    store->database().close();
    QFile::remove(store->m_path);
    if (store->addStore(&why))
        return store;
    *error = {HXOrvexErrorDomain, 0, why};
    return nullptr;
}

bool HXPersistentStore::addStore(QString *why)
{
    QSqlDatabase db = QSqlDatabase::contains(m_connection) ? QSqlDatabase::database(m_connection, false)
                                                           : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    if (!db.isValid()) {
        *why = QStringLiteral("The SQLite driver of Qt is not installed (libqt6sql6-sqlite)");
        return false;
    }
    db.setDatabaseName(m_path);
    // The store is this process's alone; whoever else holds a lock on it is
    // a stray, so give up after a second rather than freeze the window.
    db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=1000"));
    if (!db.open()) {
        *why = QStringLiteral("The store %1 could not be opened: %2")
                   .arg(m_path, db.lastError().text());
        return false;
    }
    QSqlQuery query(db);
    // Reading the schema is what tells a damaged file from a database.
    if (!query.exec(QStringLiteral("PRAGMA quick_check")) || !query.next() ||
        query.value(0).toString() != QLatin1String("ok")) {
        *why = QStringLiteral("The store %1 is damaged: %2").arg(m_path, query.lastError().text());
        db.close();
        return false;
    }
    for (const QString &entity : kEntityNames) {
        const QString create = QStringLiteral("CREATE TABLE IF NOT EXISTS \"%1\" (objectID TEXT PRIMARY KEY, "
                                              "entityName TEXT NOT NULL, localizedName TEXT, "
                                              "localizedDescription TEXT, localizedTimestamp TEXT)")
                                   .arg(entity);
        if (!query.exec(create)) {
            *why = QStringLiteral("The store %1 could not be prepared: %2").arg(m_path, query.lastError().text());
            db.close();
            return false;
        }
    }
    db.transaction();
    return true;
}

bool HXPersistentStore::insert(const QString &entity, const QString &name, const QString &description, HXError *error)
{
    if (!kEntityNames.contains(entity)) {
        *error = {HXOrvexErrorDomain, 1, QStringLiteral("The store has no entity named %1").arg(entity)};
        return false;
    }
    QSqlQuery query(database());
    query.prepare(QStringLiteral("INSERT INTO \"%1\" VALUES (?, ?, ?, ?, ?)").arg(entity));
    query.addBindValue(QUuid::createUuid().toString(QUuid::WithoutBraces));
    query.addBindValue(entity);
    query.addBindValue(name);
    query.addBindValue(description);
    query.addBindValue(QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
    if (!query.exec()) {
        *error = {HXOrvexErrorDomain, 2, query.lastError().text()};
        return false;
    }
    m_hasChanges = true;
    return true;
}

qint64 HXPersistentStore::count(const QString &entity) const
{
    QSqlQuery query(database());
    if (!query.exec(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(entity)) || !query.next())
        return -1;
    return query.value(0).toLongLong();
}

bool HXPersistentStore::save(HXError *error)
{
    QSqlDatabase db = database();
    if (!db.commit()) {
        *error = {HXOrvexErrorDomain, 3, db.lastError().text()};
        return false;
    }
    m_hasChanges = false;
    db.transaction();
    return true;
}
