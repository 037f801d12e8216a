#pragma once

#include <QString>

// The name a person knows this system by, from /etc/os-release
// ("Debian GNU/Linux 12 (bookworm)"); "Linux" when the file says nothing.
class HXHostSystem
{
public:
    static QString prettyName();
};
