#pragma once

#include <QString>

#include <stdexcept>

// A remote call that did not come back: the peer died during the call, did
// not answer within the call timeout, or refused the call. No caller is
// expected to catch it but the few places that say so.
class HXDaemonInteractionException : public std::runtime_error
{
public:
    HXDaemonInteractionException(const QString &name, const QString &reason)
        : std::runtime_error((name + QStringLiteral(": ") + reason).toStdString())
        , m_name(name)
        , m_reason(reason)
    {
    }

    QString name() const { return m_name; }
    QString reason() const { return m_reason; }

private:
    QString m_name;
    QString m_reason;
};
