#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// The kernel's software RAID arrays as /proc/mdstat lists them. Only the text
// is read here: the file is laid out by drivers/md/md.c and each level's
// status function, one paragraph per array:
//
//   md0 : active raid1 sdb1[1](F) sda1[0]
//         1046528 blocks super 1.2 [2/1] [U_]
//         [=>...................]  recovery =  8.5% (89600/1047552) finish=0.5min speed=29866K/sec
//         bitmap: 1/1 pages [4KB], 65536KB chunk

// One member as the array's first line names it: "sdb1[1](F)".
struct HXMdMember
{
    QString name;             // "sdb1": the kernel's name of the member device
    int role = -1;            // the number in brackets (the member's descriptor number)
    bool faulty = false;      // (F): md stopped using it after errors
    bool spare = false;       // (S): holds no slot of the array (yet)
    bool writeMostly = false; // (W)
    bool journal = false;     // (J): the raid5/6 journal device
    bool replacement = false; // (R): being built as the replacement of another member
};

// A resync, recovery, reshape or check, running or waiting to run.
struct HXMdSync
{
    QString action;      // "resync", "recovery", "reshape", "check", "repair"; empty when idle
    double percent = -1; // done so far; -1 while it waits
    QString waiting;     // "DELAYED", "PENDING", "REMOTE": why it has not started
    QString finish;      // the kernel's estimate: "0.5min"
    QString speed;       // "29866K/sec"

    bool isIdle() const { return action.isEmpty(); }
};

struct HXMdArray
{
    QString name;        // "md0", "md127", "md_d0"
    bool active = false; // false: "inactive", members gathered but the array not started
    QString readOnly;    // "read-only", "auto-read-only", or empty
    QString level;       // "raid1", "raid5", "linear", ...; empty when inactive
    QList<HXMdMember> members;
    qint64 blocks = -1;    // the array's size in 1 KiB blocks
    int raidDisks = -1;    // n of "[n/m]": slots the level wants; -1 for levels without redundancy
    int workingDisks = -1; // m of "[n/m]": slots with an in-sync member
    QString slotMap;       // "U_": each slot up (U) or missing (_)
    HXMdSync sync;

    // Slots without a working member, from "[n/m]" and the slot map alike.
    int missingDisks() const;
    QStringList memberNames() const;
    QStringList failedMembers() const;
    QStringList spareMembers() const;
    // Members that hold a slot but are not in sync yet: those a recovery builds.
    int rebuildingCount() const;
};

struct HXMdstat
{
    QStringList personalities; // "raid1", "raid6", ...
    QList<HXMdArray> arrays;   // in the file's order, active or not

    // Never fails: lines it does not understand are passed over, so a
    // truncated or garbled file gives what could be read of it.
    static HXMdstat parse(const QString &text);
};
