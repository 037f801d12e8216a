#pragma once

#include <QString>

// A user-visible text looked up by key in the "Localizable" table, with its
// English default when no translation has it.
QString HXPreferencesText(const char *key, const char *englishDefault);
