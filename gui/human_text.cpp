// HumanText: the sentences for kinefix's error lines and standard-error messages.
#include "human_text.h"

#include <QCoreApplication>
#include <QRegularExpression>

namespace {

QString Tr(const char* text) {
    return QCoreApplication::translate("HumanText", text);
}

}  // namespace

QString HumanText::errorSentence(const QString& message) {
    if (message.contains(QLatin1String("interrupted by signal")))
        return Tr("The repair was stopped; the packets copied until then were kept.");
    if (message.contains(QLatin1String("No space left on device")))
        return Tr("The disk is full. Free some space and repair again.");
    if (message.contains(QLatin1String("File too large")))
        return Tr(
            "The output grew larger than its disk allows. Choose an output on another "
            "disk and repair again.");
    if (message.contains(QLatin1String("the output file is one of the input files")))
        return Tr(
            "The output would overwrite one of the inputs, so nothing was written. "
            "Choose another output name.");
    if (message.startsWith(QLatin1String("input is not a regular file: ")))
        return Tr("%1 is not an ordinary file (a pipe or a device?). Save it to a file first.")
            .arg(message.mid(29));
    if (message.startsWith(QLatin1String("could not finish the output file")))
        return Tr("The output could not be completed (%1); an existing file of that name was "
                  "kept.")
            .arg(message.section(QLatin1String(": "), 1));
    if (message == QLatin1String("Invalid argument"))
        return Tr(
            "Some packets had timestamps out of order and were left out: the index may "
            "belong to another recording.");
    return Tr("The repair reported: %1").arg(message);
}

QString HumanText::stderrSentence(const QString& line) {
    if (line.startsWith(QLatin1String("Could not create output context")))
        return Tr(
            "Kinefix cannot write a video of that kind: end the output's name with .mp4, "
            ".mov or .mkv.");
    if (line.startsWith(QLatin1String("Error occurred: ")))
        return Tr("The output could not be written: %1. Check that its folder exists and is "
                  "writable.")
            .arg(line.mid(16));
    if (line.startsWith(QLatin1String("Error occurred when opening output file")))
        return Tr(
            "The output format refused the streams the index describes: the index may "
            "be incomplete.");
    if (line.startsWith(QLatin1String("kinefix-index:")) ||
        line.startsWith(QLatin1String("kinefix-crypt:")))
        return line.section(QLatin1Char(':'), 1).trimmed();
    return QString();
}

QString HumanText::duration(double seconds) {
    if (seconds < 0) seconds = 0;
    if (seconds < 59.95) return Tr("%1 s").arg(seconds, 0, 'f', 1);
    const qint64 s = qRound64(seconds);
    if (s < 3600) return Tr("%1 min %2 s").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
    return Tr("%1 h %2 min").arg(s / 3600).arg((s % 3600) / 60, 2, 10, QLatin1Char('0'));
}

QString HumanText::size(qint64 bytes) {
    if (bytes < 1000) return Tr("%1 bytes").arg(bytes);
    const char* units[] = {"kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes);
    int unit = -1;
    while (value >= 1000.0 && unit < 3) {
        value /= 1000.0;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', value < 10 ? 2 : 1).arg(units[unit]);
}
