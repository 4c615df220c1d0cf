#pragma once
// Helpers of the front end's tests: real damaged recordings with their indexes, scripted
// console programs that speak the stdout contract on cue, and packet comparison without
// GoogleTest.

#include <QDir>
#include <QFile>
#include <QString>

#include "support/media_support.h"

namespace kinefix_gui_test {

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

// kinefix_test::packet_difference for two files of `dir`.
inline QString packetDifference(const TempDir& dir, const std::string& original,
                                const std::string& repaired) {
    return QString::fromStdString(
        kinefix_test::packet_difference(kinefix_test::frame_report(dir / original, dir),
                                        kinefix_test::frame_report(dir / repaired, dir)));
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
