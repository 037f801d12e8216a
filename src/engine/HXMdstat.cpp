#include "HXMdstat.h"

#include <QRegularExpression>
#include <algorithm>

namespace {

// The array's first line. The name pattern is the one the machine probes use,
// so the probe and this parser agree on which arrays are active.
const QRegularExpression &arrayLine()
{
    static const QRegularExpression re(
        QStringLiteral("^(md\\S*)\\s*:\\s*(active|inactive)\\b(.*)$"));
    return re;
}

// "sdb1[1]", "sdb1[1](F)", "nvme0n1p2[3](W)(R)"
const QRegularExpression &memberToken()
{
    static const QRegularExpression re(QStringLiteral("^(\\S+?)\\[(\\d+)\\]((?:\\([A-Z]\\))*)$"));
    return re;
}

void parseFirstLine(HXMdArray &array, const QString &rest)
{
    const QStringList tokens = rest.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &token : tokens) {
        if (token == QLatin1String("(read-only)") || token == QLatin1String("(auto-read-only)")) {
            array.readOnly = token.mid(1, token.size() - 2);
            continue;
        }
        const QRegularExpressionMatch m = memberToken().match(token);
        if (!m.hasMatch()) {
            // The level comes before the members, once.
            if (array.active && array.level.isEmpty() && array.members.isEmpty())
                array.level = token;
            continue;
        }
        HXMdMember member;
        member.name = m.captured(1);
        member.role = m.captured(2).toInt();
        const QString flags = m.captured(3);
        member.faulty = flags.contains(QLatin1String("(F)"));
        member.spare = flags.contains(QLatin1String("(S)"));
        member.writeMostly = flags.contains(QLatin1String("(W)"));
        member.journal = flags.contains(QLatin1String("(J)"));
        member.replacement = flags.contains(QLatin1String("(R)"));
        array.members.append(member);
    }
}

void parseDetailLine(HXMdArray &array, const QString &line)
{
    static const QRegularExpression blocks(QStringLiteral("^\\s*(\\d+) blocks\\b"));
    static const QRegularExpression health(QStringLiteral("\\[(\\d+)/(\\d+)\\]\\s*\\[([U_]*)\\]"));
    static const QRegularExpression progress(
        QStringLiteral("\\b(resync|recovery|reshape|check|repair)\\s*=\\s*(\\d+(?:\\.\\d+)?)%"));
    static const QRegularExpression waiting(QStringLiteral(
        "\\b(resync|recovery|recover|reshape|check|repair)\\s*=\\s*(DELAYED|PENDING|REMOTE)\\b"));
    static const QRegularExpression finish(QStringLiteral("\\bfinish=(\\S+)"));
    static const QRegularExpression speed(QStringLiteral("\\bspeed=(\\S+)"));

    QRegularExpressionMatch m = blocks.match(line);
    if (m.hasMatch())
        array.blocks = m.captured(1).toLongLong();
    m = health.match(line);
    if (m.hasMatch()) {
        bool nOk = false;
        bool mOk = false;
        const int n = m.captured(1).toInt(&nOk);
        const int w = m.captured(2).toInt(&mOk);
        if (nOk && mOk) {
            array.raidDisks = n;
            array.workingDisks = w;
            array.slotMap = m.captured(3);
        }
    }
    m = progress.match(line);
    if (m.hasMatch()) {
        array.sync.action = m.captured(1);
        array.sync.percent = m.captured(2).toDouble();
        if (const QRegularExpressionMatch f = finish.match(line); f.hasMatch())
            array.sync.finish = f.captured(1);
        if (const QRegularExpressionMatch s = speed.match(line); s.hasMatch())
            array.sync.speed = s.captured(1);
        return;
    }
    m = waiting.match(line);
    if (m.hasMatch()) {
        // A recovery running on another node of a cluster is "recover=REMOTE".
        array.sync.action =
            m.captured(1) == QLatin1String("recover") ? QStringLiteral("recovery") : m.captured(1);
        array.sync.waiting = m.captured(2);
    }
}

} // namespace

int HXMdArray::missingDisks() const
{
    int missing = 0;
    if (raidDisks > 0 && workingDisks >= 0)
        missing = std::max(0, raidDisks - workingDisks);
    return std::max<int>(missing, int(slotMap.count(QLatin1Char('_'))));
}

QStringList HXMdArray::memberNames() const
{
    QStringList names;
    for (const HXMdMember &m : members)
        names.append(m.name);
    return names;
}

QStringList HXMdArray::failedMembers() const
{
    QStringList names;
    for (const HXMdMember &m : members) {
        if (m.faulty)
            names.append(m.name);
    }
    return names;
}

QStringList HXMdArray::spareMembers() const
{
    QStringList names;
    for (const HXMdMember &m : members) {
        if (m.spare && !m.faulty)
            names.append(m.name);
    }
    return names;
}

int HXMdArray::rebuildingCount() const
{
    if (workingDisks < 0)
        return 0;
    int holdingSlots = 0;
    for (const HXMdMember &m : members) {
        if (!m.faulty && !m.spare && !m.journal && !m.replacement)
            ++holdingSlots;
    }
    return std::max(0, holdingSlots - workingDisks);
}

HXMdstat HXMdstat::parse(const QString &text)
{
    HXMdstat result;
    HXMdArray *current = nullptr;
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &raw : lines) {
        const QString line = raw.trimmed().isEmpty() ? QString() : raw;
        if (line.isEmpty()) {
            current = nullptr; // a blank line ends the array's paragraph
            continue;
        }
        if (line.startsWith(QLatin1String("Personalities"))) {
            static const QRegularExpression personality(QStringLiteral("\\[([^\\]]+)\\]"));
            auto it = personality.globalMatch(line);
            while (it.hasNext())
                result.personalities.append(it.next().captured(1));
            current = nullptr;
            continue;
        }
        const QRegularExpressionMatch first = arrayLine().match(line);
        if (first.hasMatch()) {
            HXMdArray array;
            array.name = first.captured(1);
            array.active = first.captured(2) == QLatin1String("active");
            parseFirstLine(array, first.captured(3));
            result.arrays.append(array);
            current = &result.arrays.last();
            continue;
        }
        // Detail lines are indented; anything else ("unused devices: ...")
        // belongs to no array.
        if (current && line.front().isSpace())
            parseDetailLine(*current, line);
        else
            current = nullptr;
    }
    return result;
}
