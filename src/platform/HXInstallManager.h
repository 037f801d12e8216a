#pragma once

#include <QString>

// An error as the installer reports it: a domain, a code and a sentence.
struct HXError
{
    HXError() = default;
    HXError(QString domain, qint64 code, QString description, QString failureReason = QString())
        : domain(std::move(domain))
        , code(code)
        , description(std::move(description))
        , failureReason(std::move(failureReason))
    {
    }

    QString domain;
    qint64 code = 0;
    QString description;
    QString failureReason; // why, when the description alone does not say
};

// Installs a privileged helper: polkit's pkexec asks an administrator and
// runs the helper installer, which installs and starts the helper's systemd
// unit. The application never installs anything itself; this is kept for the
// packages that want it.
class HXInstallManager
{
public:
    static const QString kHelperLabel;
    // Authorisation failures, in the operating-system status domain.
    static const QString kOSStatusErrorDomain;
    static constexpr qint64 kAuthorizationDenied = -60005;
    static constexpr qint64 kAuthorizationCanceled = -60006;
    static constexpr qint64 kAuthorizationInternal = -60008;
    // Failures of the installation itself: the installer's exit status.
    static const QString kInstallErrorDomain;

    struct Programs
    {
        QString pkexec;
        QString installer;
    };
    static Programs defaultPrograms();

    explicit HXInstallManager(Programs programs = defaultPrograms());

    // Installs kHelperLabel and logs the outcome.
    void install();
    // False with *error on failure; false at once, doing nothing, without an
    // error slot.
    bool blessHelperWithLabel(const QString &label, HXError *error);

private:
    Programs m_programs;
};
