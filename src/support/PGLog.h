#pragma once

#include <QByteArray>
#include <QString>

// The mail agent's protocol log: one process-wide buffer in memory, each entry
// appended as "<text>\n\n". It holds the whole dialogue, the encoded user name
// and password and every message sent included, so it never leaves the
// process: nothing writes it to the system log or to a file. It grows with
// every message; nothing in the program empties it.

void PGLog(const QString &text);
// Discards the buffer. A copy on the desktop, which the mail agent's own
// developers once had, is deliberately not offered: the log holds the
// password.
void PGLogFinish();
// A copy of the buffer, for tests that read the dialogue.
QByteArray PGLogContents();
