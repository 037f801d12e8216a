#include "ZRReplyToRule.h"

#include <QRegularExpression>

namespace ZRReplyToRule {

bool isValidEmailAddress(const QString &text, const QString &refusedPrefix)
{
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("(\\s*)(\\S+)@(\\S+)\\.(\\S+)(\\s*)")));
    if (!pattern.match(text).hasMatch())
        return false;
    const QString prefix = refusedPrefix.trimmed().toLower();
    // Trimmed first: leading blanks must not smuggle the support address in.
    return prefix.isEmpty() || !text.trimmed().toLower().startsWith(prefix);
}

QString senderName(const QString &replyTo)
{
    const QString name = replyTo.trimmed();
    return name.isEmpty() ? QStringLiteral("Anonymous") : name;
}

QString subjectFor(const QString &senderName)
{
    if (senderName == QLatin1String("Anonymous"))
        return QStringLiteral("%1 Orvex report").arg(senderName);
    return QStringLiteral("Orvex report from %1").arg(senderName);
}

} // namespace ZRReplyToRule
