#pragma once

#include <QString>

// What the help reporter accepts as a reply-to address, and the sender name
// and subject it makes from it.
namespace ZRReplyToRule {

// The whole text matches "(\s*)(\S+)@(\S+)\.(\S+)(\s*)" (so blanks around the
// address are allowed), and the trimmed, lower-cased text does not begin with
// `refusedPrefix` (the support mailbox itself cannot be the reply-to).
bool isValidEmailAddress(const QString &text, const QString &refusedPrefix);

// The trimmed reply-to text, or "Anonymous" when nothing is left.
QString senderName(const QString &replyTo);

// "Anonymous Orvex report" for the anonymous name, else "Orvex report from <name>".
QString subjectFor(const QString &senderName);

} // namespace ZRReplyToRule
