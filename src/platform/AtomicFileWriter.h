#pragma once

#include "FileStamp.h"

#include <QByteArray>
#include <QString>

#include <sys/types.h>

// Replaces a file as a whole: the data goes to a hidden temporary file in the
// same folder, which then takes the file's name with rename(2), so a reader
// sees either the old file or the new one, never a part. The new file gets
// `mode` and, when `groupName` is not empty, that group.
class AtomicFileWriter
{
public:
    struct Result
    {
        bool written = false;
        QString writeError;     // why the data could not be written (file left as it was)
        QString attributeError; // why the mode or group could not be set (data written)
        FileStamp stamp;        // the file as written, when it was
    };

    static Result write(const QString &path, const QByteArray &data, mode_t mode,
                        const QString &groupName);
};
