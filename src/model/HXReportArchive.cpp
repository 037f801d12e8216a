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
std::optional<QList<std::shared_ptr<T>>> typedList(const QVariant &list,
                                                   KeyedUnarchiver *unarchiver, const char *what)
{
    if (list.metaType().id() != QMetaType::QVariantList) {
        unarchiver->fail(QStringLiteral("the archive holds something other than a list of %1")
                             .arg(QLatin1StringView(what)));
        return std::nullopt;
    }
    const QVariantList items = list.toList();
    QList<std::shared_ptr<T>> out;
    out.reserve(items.size());
    for (const QVariant &item : items) {
        if (item.metaType() != QMetaType::fromType<std::shared_ptr<T>>()) {
            unarchiver->fail(QStringLiteral("a list of %1 holds something else")
                                 .arg(QLatin1StringView(what)));
            return std::nullopt;
        }
        out.append(item.value<std::shared_ptr<T>>());
    }
    return out;
}

template<class T>
std::optional<QList<std::shared_ptr<T>>> typedListUnder(KeyedUnarchiver::Coder &coder,
                                                       QLatin1StringView key, const char *what)
{
    QList<std::shared_ptr<T>> out;
    const bool ok = coder.forEachInList(key, [&](QVariant &&item) {
        if (item.metaType() != QMetaType::fromType<std::shared_ptr<T>>()) {
            coder.unarchiver().fail(QStringLiteral("a list of %1 holds something else")
                                        .arg(QLatin1StringView(what)));
            return false;
        }
        out.append(*static_cast<const std::shared_ptr<T> *>(item.constData()));
        return true;
    });
    if (!ok || coder.unarchiver().failed()) {
        if (!coder.unarchiver().failed())
            coder.unarchiver().fail(QStringLiteral("the archive holds something other than a "
                                                   "list of %1")
                                        .arg(QLatin1StringView(what)));
        return std::nullopt;
    }
    return out;
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

std::optional<HXTestResultList> HXReportArchive::testResultsFrom(const QVariant &list,
                                                                 KeyedUnarchiver *unarchiver)
{
    return typedList<HXTestResult>(list, unarchiver, "test results");
}

std::optional<HXLogEntryList> HXReportArchive::logEntriesFrom(const QVariant &list,
                                                              KeyedUnarchiver *unarchiver)
{
    return typedList<HXLogEntry>(list, unarchiver, "log entries");
}
