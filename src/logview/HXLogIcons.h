#pragma once

#include <QIcon>
#include <QString>

// The log rows' pictures, each made once and kept: the type icons, and the
// inline marks of file rows (a follow-link arrow tinted dark grey when the
// file is there for this user, an exclamation point tinted red when not).
namespace HXLogIcons {

constexpr int kTypeIconSize = 16;
constexpr int kFileIconSize = 12;

// "Passed", "Warning", "Error"; a null icon for any other type.
QIcon typeIcon(const QString &type);
QIcon fileIcon(bool exists);

} // namespace HXLogIcons
