#pragma once
// Helpers of the front end's tests: real damaged recordings with their indexes, scripted
// console programs that speak the stdout contract on cue, and packet comparison without
// GoogleTest.

#include <QDir>
#include <QFile>
#include <QString>
#include <algorithm>

#include "support/media_support.h"

namespace kinefix_gui_test {

using kinefix_test::FrameReport;
using kinefix_test::TempDir;

// An intact recording `NAME.orig.mp4`, its damaged copy `NAME.mp4` (index box gone) and the
// index written from the intact one at `index_path`. Returns an error text, empty on success.
inline QString makeDamaged(const TempDir& dir, const std::string& name,
                           const kinefix_test::RecordingPlan& plan, const std::string& index_path) {
    const std::string original = dir / (name + ".orig.mp4");
    const std::string damaged = dir / (name + ".mp4");
    const std::string error = kinefix_test::make_recording(original, plan, dir);
    if (!error.empty()) return QString::fromStdString(error);
    const kinefix_test::RunResult r =
        kinefix_test::run(kinefix_test::bin_dir() + "/kinefix-index", {original, index_path},
                          kinefix_test::isolated_env(dir), dir);
    if (r.exit_code != 0) return QString::fromStdString("kinefix-index: " + r.err);
    kinefix_test::write_file(damaged, kinefix_test::read_file(original));
    if (!kinefix_test::destroy_moov(damaged)) return QStringLiteral("no moov box");
    return QString();
}

// Empty when `repaired` holds the packets of `original`, MD5 for MD5, stream by stream, in
// order (a constant time shift allowed); else the first difference. `prefix` compares only as
// many packets as the shorter stream has, at least one: a partial copy, or one of a repeated
// recording, begins with the original.
inline QString packetDifference(const FrameReport& original, const FrameReport& repaired,
                                bool prefix = false) {
    if (!original.ok || !repaired.ok)
        return QString::fromStdString("framemd5 failed: " + original.error + repaired.error);
    if (original.streams.size() != repaired.streams.size())
        return QString::asprintf("stream count %zu != %zu", repaired.streams.size(),
                                 original.streams.size());
    for (const auto& [index, packets] : original.streams) {
        const auto& got = repaired.streams.at(index);
        const bool count_ok = prefix ? !got.empty() : got.size() == packets.size();
        if (!count_ok)
            return QString::asprintf("stream %d: %zu packets of %zu", index, got.size(),
                                     packets.size());
        for (size_t i = 0; i < std::min(got.size(), packets.size()); ++i)
            if (got[i].md5 != packets[i].md5)
                return QStringLiteral("stream %1 packet %2 differs").arg(index).arg(i);
    }
    return QString();
}

inline size_t packetCount(const FrameReport& report) {
    size_t n = 0;
    for (const auto& stream : report.streams) n += stream.second.size();
    return n;
}

// The packet comparison above for two files of `dir`.
inline QString packetDifference(const TempDir& dir, const std::string& original,
                                const std::string& repaired) {
    return packetDifference(kinefix_test::frame_report(dir / original, dir),
                            kinefix_test::frame_report(dir / repaired, dir));
}

inline QString at(const TempDir& dir, const std::string& name) {
    return QString::fromStdString(dir / name);
}

// A tools folder in `dir` where `scripted` is a shell script running `body` and the other
// programs are the built ones; empty when it could not be made.
inline QString toolsWith(const TempDir& dir, const QString& scripted, const QString& body) {
    const QString tools = at(dir, "tools");
    QDir().mkpath(tools);
    for (const QString name : {"kinefix", "kinefix-index", "kinefix-crypt"})
        if (name != scripted)
            QFile::link(QString::fromStdString(kinefix_test::bin_dir()) + "/" + name,
                        tools + "/" + name);
    const QString script = tools + "/" + scripted;
    kinefix_test::write_file(script.toStdString(), "#!/bin/sh\n" + body.toStdString());
    return QFile::setPermissions(script, QFile::permissions(script) | QFileDevice::ExeOwner)
               ? tools
               : QString();
}

}  // namespace kinefix_gui_test
