#pragma once
// Helpers of the front end's tests: real damaged recordings with their indexes, fake console
// programs that speak the stdout contract on cue, and packet comparison without GoogleTest.

#include <QFile>
#include <QString>

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
// order (a constant time shift allowed); else the first difference. `prefix` accepts a
// repaired file that holds only the first packets of each stream, at least one.
inline QString packetDifference(const FrameReport& original, const FrameReport& repaired,
                                bool prefix = false) {
    if (!original.ok || !repaired.ok)
        return QString::fromStdString("framemd5 failed: " + original.error + repaired.error);
    if (original.streams.size() != repaired.streams.size())
        return QStringLiteral("stream count %1 != %2")
            .arg(repaired.streams.size())
            .arg(original.streams.size());
    for (const auto& [index, packets] : original.streams) {
        const auto& got = repaired.streams.at(index);
        const bool count_ok =
            prefix ? !got.empty() && got.size() <= packets.size() : got.size() == packets.size();
        if (!count_ok)
            return QStringLiteral("stream %1: %2 packets of %3")
                .arg(index)
                .arg(got.size())
                .arg(packets.size());
        for (size_t i = 0; i < got.size(); ++i)
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

// A shell script made executable, standing in for one of the console programs.
inline bool writeScript(const QString& path, const QString& body) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
    file.write(("#!/bin/sh\n" + body).toUtf8());
    file.close();
    return file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
}

}  // namespace kinefix_gui_test
