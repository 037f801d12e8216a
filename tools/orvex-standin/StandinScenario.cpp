#include "StandinScenario.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr std::pair<HXTest, const char *> kTestKeys[] = {
    {HXTest::SMART, "SMART"},
    {HXTest::SurfaceScan, "SurfaceScan"},
    {HXTest::FileStructures, "FileStructures"},
    {HXTest::Memory, "Memory"},
    {HXTest::VolumeStructures, "VolumeStructures"},
    {HXTest::PartitionMap, "PartitionMap"},
    {HXTest::RAID, "RAID"},
    {HXTest::Battery, "Battery"},
    {HXTest::IO, "IO"},
    {HXTest::POST, "POST"},
};

constexpr std::pair<StandinOutcome, const char *> kOutcomeKeys[] = {
    {StandinOutcome::Passed, "passed"},
    {StandinOutcome::Warning, "warning"},
    {StandinOutcome::Error, "error"},
    {StandinOutcome::NotApplicable, "notApplicable"},
};

StandinTestRun run(HXTest test, StandinOutcome outcome, const QString &disk = {},
                   const QString &log = {}, const QStringList &files = {})
{
    return StandinTestRun{test, outcome, disk, log, files, {}};
}

bool fail(QString *error, const QString &sentence)
{
    if (error)
        *error = sentence;
    return false;
}

bool readDisk(const QJsonValue &value, int index, StandinDisk *disk, QString *error)
{
    const QJsonObject o = value.toObject();
    disk->id = o.value(QLatin1String("id")).toString();
    disk->bsdName = o.value(QLatin1String("bsdName")).toString();
    disk->name = o.value(QLatin1String("name")).toString();
    disk->uuid = o.value(QLatin1String("uuid")).toString();
    if (!value.isObject() || disk->id.isEmpty() || disk->bsdName.isEmpty() || disk->uuid.isEmpty())
        return fail(error,
                    QStringLiteral("disks[%1] needs the strings \"id\", \"bsdName\" and \"uuid\"")
                        .arg(index));
    if (disk->name.isEmpty())
        disk->name = disk->bsdName;
    return true;
}

bool readRun(const QJsonValue &value, int index, const StandinScenario &scenario,
             StandinTestRun *run, QString *error)
{
    const QString where = QStringLiteral("tests[%1]").arg(index);
    if (!value.isObject())
        return fail(error, where + QStringLiteral(" is not an object"));
    const QJsonObject o = value.toObject();
    const auto test = StandinTestFromKey(o.value(QLatin1String("test")).toString());
    if (!test)
        return fail(error, where + QStringLiteral(" names no known test in \"test\""));
    run->test = *test;
    const QString outcome = o.value(QLatin1String("outcome")).toString(QStringLiteral("passed"));
    bool known = false;
    for (const auto &[value, key] : kOutcomeKeys) {
        if (outcome == QLatin1String(key)) {
            run->outcome = value;
            known = true;
        }
    }
    if (!known)
        return fail(error,
                    where + QStringLiteral(
                                ": \"outcome\" must be passed, warning, error or notApplicable"));
    run->diskId = o.value(QLatin1String("disk")).toString();
    if (!run->diskId.isEmpty() && !scenario.disk(run->diskId))
        return fail(error, where + QStringLiteral(": no disk has the id \"%1\"").arg(run->diskId));
    run->log = o.value(QLatin1String("log")).toString();
    for (const QJsonValue &file : o.value(QLatin1String("files")).toArray())
        run->files.append(file.toString());
    run->info = o.value(QLatin1String("info")).toObject().toVariantMap();
    return true;
}

} // namespace

QString StandinTestKey(HXTest test)
{
    for (const auto &[value, key] : kTestKeys) {
        if (value == test)
            return QLatin1String(key);
    }
    return {};
}

std::optional<HXTest> StandinTestFromKey(const QString &key)
{
    for (const auto &[value, name] : kTestKeys) {
        if (key == QLatin1String(name))
            return value;
    }
    return std::nullopt;
}

QString StandinOutcomeKey(StandinOutcome outcome)
{
    for (const auto &[value, key] : kOutcomeKeys) {
        if (value == outcome)
            return QLatin1String(key);
    }
    return {};
}

const StandinDisk *StandinScenario::disk(const QString &id) const
{
    for (const StandinDisk &d : disks) {
        if (d.id == id)
            return &d;
    }
    return nullptr;
}

StandinScenario StandinScenario::defaultScenario()
{
    StandinScenario s;
    s.disks = {
        {QStringLiteral("system"), QStringLiteral("nvme0n1"),
         QStringLiteral("Samsung SSD 980 PRO 1TB"),
         QStringLiteral("3f1c9e52-7d0a-4b8e-9a61-2c5d8e4f7b10")},
        {QStringLiteral("backup"), QStringLiteral("sda"),
         QStringLiteral("WDC WD40EFRX-68N32N0 4TB"),
         QStringLiteral("a8d27c44-1e6b-4f39-8c05-91b7e3d6f2a4")},
    };
    const QString system = QStringLiteral("system");
    const QString backup = QStringLiteral("backup");
    s.runs = {
        run(HXTest::SMART, StandinOutcome::Passed, system),
        run(HXTest::SMART, StandinOutcome::Warning, backup,
            QStringLiteral(
                "SMART test warning on WDC WD40EFRX-68N32N0 4TB (sda): 8 reallocated sectors, "
                "up from 0 at the last pass")),
        run(HXTest::SurfaceScan, StandinOutcome::Passed, system),
        run(HXTest::SurfaceScan, StandinOutcome::Warning, backup,
            QStringLiteral("Surface Scan test warning on WDC WD40EFRX-68N32N0 4TB (sda): 3 blocks "
                           "needed several "
                           "reads")),
        run(HXTest::FileStructures, StandinOutcome::Error, system,
            QStringLiteral(
                "File Structures test found 3 damaged files on Samsung SSD 980 PRO 1TB (nvme0n1)"),
            {QStringLiteral("/home/demo/Pictures/2024/IMG_0412.jpg"),
             QStringLiteral("/home/demo/Documents/taxes-2025.ods"),
             QStringLiteral("/home/demo/.local/share/baloo/index")}),
        run(HXTest::Memory, StandinOutcome::Passed),
        run(HXTest::VolumeStructures, StandinOutcome::Passed, system),
        run(HXTest::VolumeStructures, StandinOutcome::Passed, backup),
        run(HXTest::PartitionMap, StandinOutcome::Passed, system),
        run(HXTest::PartitionMap, StandinOutcome::Passed, backup),
        run(HXTest::RAID, StandinOutcome::NotApplicable),
        run(HXTest::Battery, StandinOutcome::Passed),
        run(HXTest::IO, StandinOutcome::Passed),
        run(HXTest::POST, StandinOutcome::Passed),
    };
    return s;
}

std::optional<StandinScenario> StandinScenario::fromJson(const QByteArray &json, QString *error)
{
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parse);
    if (doc.isNull()) {
        fail(
            error,
            QStringLiteral("not JSON: %1 at offset %2").arg(parse.errorString()).arg(parse.offset));
        return std::nullopt;
    }
    if (!doc.isObject()) {
        fail(error, QStringLiteral("the scenario must be a JSON object"));
        return std::nullopt;
    }
    const QJsonObject o = doc.object();
    StandinScenario s;
    s.stepMilliseconds = o.value(QLatin1String("stepMilliseconds")).toInt(s.stepMilliseconds);
    if (s.stepMilliseconds < 1 || s.stepMilliseconds > 600000) {
        fail(error, QStringLiteral("\"stepMilliseconds\" must be between 1 and 600000"));
        return std::nullopt;
    }
    s.systemSleepTimeAllowsIdleRun =
        o.value(QLatin1String("systemSleepTimeAllowsIdleRun")).toBool(true);
    const QJsonArray disks = o.value(QLatin1String("disks")).toArray();
    for (int i = 0; i < disks.size(); ++i) {
        StandinDisk disk;
        if (!readDisk(disks[i], i, &disk, error))
            return std::nullopt;
        s.disks.append(disk);
    }
    const QJsonObject hidden = o.value(QLatin1String("daemonOnlyFiles")).toObject();
    for (auto it = hidden.begin(); it != hidden.end(); ++it) {
        if (!it.value().isString() || it.key().isEmpty()) {
            fail(error, QStringLiteral("\"daemonOnlyFiles\" maps paths to their owners' names"));
            return std::nullopt;
        }
        s.daemonOnlyFiles.insert(it.key(), it.value().toString());
    }
    const QJsonArray tests = o.value(QLatin1String("tests")).toArray();
    if (tests.isEmpty()) {
        fail(error, QStringLiteral("\"tests\" must list at least one test run"));
        return std::nullopt;
    }
    for (int i = 0; i < tests.size(); ++i) {
        StandinTestRun r;
        if (!readRun(tests[i], i, s, &r, error))
            return std::nullopt;
        s.runs.append(r);
    }
    return s;
}

QByteArray StandinScenario::toJson() const
{
    QJsonArray disksJson;
    for (const StandinDisk &d : disks) {
        disksJson.append(QJsonObject{{QStringLiteral("id"), d.id},
                                     {QStringLiteral("bsdName"), d.bsdName},
                                     {QStringLiteral("name"), d.name},
                                     {QStringLiteral("uuid"), d.uuid}});
    }
    QJsonArray runsJson;
    for (const StandinTestRun &r : runs) {
        QJsonObject o{{QStringLiteral("test"), StandinTestKey(r.test)},
                      {QStringLiteral("outcome"), StandinOutcomeKey(r.outcome)}};
        if (!r.diskId.isEmpty())
            o.insert(QStringLiteral("disk"), r.diskId);
        if (!r.log.isEmpty())
            o.insert(QStringLiteral("log"), r.log);
        if (!r.files.isEmpty())
            o.insert(QStringLiteral("files"), QJsonArray::fromStringList(r.files));
        if (!r.info.isEmpty())
            o.insert(QStringLiteral("info"), QJsonObject::fromVariantMap(r.info));
        runsJson.append(o);
    }
    QJsonObject root{{QStringLiteral("stepMilliseconds"), stepMilliseconds},
                     {QStringLiteral("systemSleepTimeAllowsIdleRun"), systemSleepTimeAllowsIdleRun},
                     {QStringLiteral("disks"), disksJson},
                     {QStringLiteral("tests"), runsJson}};
    if (!daemonOnlyFiles.isEmpty()) {
        QJsonObject hidden;
        for (auto it = daemonOnlyFiles.begin(); it != daemonOnlyFiles.end(); ++it)
            hidden.insert(it.key(), it.value());
        root.insert(QStringLiteral("daemonOnlyFiles"), hidden);
    }
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}
