#include "HXReportArchive.h"

void HXReportArchive::registerModelClasses(KeyedUnarchiver &unarchiver)
{
    unarchiver.registerClass(QStringLiteral("HXStatusReport"), &HXStatusReport::decodeWithCoder);
    unarchiver.registerClass(QStringLiteral("HXTestResult"), &HXTestResult::decodeWithCoder);
    unarchiver.registerClass(QStringLiteral("HXLogEntry"), &HXLogEntry::decodeWithCoder);
}

namespace {

template<class T>
std::shared_ptr<T> decodeRoot(const QByteArray &bytes, QString *error, const char *what)
{
    KeyedUnarchiver unarchiver(KeyedUnarchiver::Mode::Secure);
    HXReportArchive::registerModelClasses(unarchiver);
    QVariant root;
    if (unarchiver.open(bytes))
        root = unarchiver.decodeRoot();
    if (unarchiver.failed()) {
        if (error)
            *error = unarchiver.error();
        return nullptr;
    }
    if (root.metaType() != QMetaType::fromType<std::shared_ptr<T>>()) {
        if (error)
            *error = QStringLiteral("the archive does not hold %1").arg(QLatin1StringView(what));
        return nullptr;
    }
    return root.value<std::shared_ptr<T>>();
}

template<class T>
std::optional<QList<std::shared_ptr<T>>> typedListAt(KeyedUnarchiver &u, quint64 uid, int depth,
                                                    const char *what)
{
    QList<std::shared_ptr<T>> out;
    const bool ok = u.forEachInListAt(
        uid, depth,
        [&](QVariant &&item) {
            if (item.metaType() != QMetaType::fromType<std::shared_ptr<T>>()) {
                u.fail(QStringLiteral("a list of %1 holds something else").arg(QLatin1StringView(what)));
                return false;
            }
            out.append(*static_cast<const std::shared_ptr<T> *>(item.constData()));
            return true;
        },
        QStringLiteral("a list of %1").arg(QLatin1StringView(what)));
    if (!ok || u.failed())
        return std::nullopt;
    return out;
}

template<class T>
std::optional<QList<std::shared_ptr<T>>> typedListUnder(KeyedUnarchiver::Coder &coder,
                                                       QLatin1StringView key, const char *what)
{
    quint64 uid = 0;
    if (!coder.referencedUid(key, &uid)) {
        if (coder.unarchiver().failed())
            return std::nullopt;
        return QList<std::shared_ptr<T>>(); // a missing list is an empty one
    }
    return typedListAt<T>(coder.unarchiver(), uid, coder.depth() + 1, what);
}

} // namespace

std::optional<HXTestResultList> HXReportArchive::testResultsUnder(KeyedUnarchiver::Coder &coder,
                                                                  QLatin1StringView key)
{
    return typedListUnder<HXTestResult>(coder, key, "test results");
}

std::optional<HXLogEntryList> HXReportArchive::logEntriesUnder(KeyedUnarchiver::Coder &coder,
                                                               QLatin1StringView key)
{
    return typedListUnder<HXLogEntry>(coder, key, "log entries");
}

std::optional<HXLogEntryList> HXReportArchive::logEntriesAt(KeyedUnarchiver &unarchiver, quint64 uid,
                                                            int depth)
{
    return typedListAt<HXLogEntry>(unarchiver, uid, depth, "log entries");
}

HXStatusReportRef HXReportArchive::decodeReport(const QByteArray &bytes, QString *error)
{
    return decodeRoot<HXStatusReport>(bytes, error, "a status report");
}

QByteArray HXReportArchive::encodeReport(const HXStatusReport &report)
{
    KeyedArchiver archiver;
    return archiver.archiveRootObject(report);
}

HXTestResultRef HXReportArchive::decodeTestResult(const QByteArray &bytes, QString *error)
{
    return decodeRoot<HXTestResult>(bytes, error, "a test result");
}

HXLogEntryRef HXReportArchive::decodeLogEntry(const QByteArray &bytes, QString *error)
{
    return decodeRoot<HXLogEntry>(bytes, error, "a log entry");
}
