#include "HXPreferencesText.h"

#include <QCoreApplication>

QString HXPreferencesText(const char *key, const char *englishDefault)
{
    const QString translated = QCoreApplication::translate("Localizable", key);
    return translated == QLatin1String(key) ? QString::fromUtf8(englishDefault) : translated;
}
