// ChildLineParser: line splitting and the standard-output contract of kinefix and kinefix-index.
#include "child_line_parser.h"

#include <QRegularExpression>

namespace {

bool ParseSummary(const QString& body, RepairSummary* out) {
    static const QRegularExpression re(
        QStringLiteral("^packets=(\\d+),ignored=(\\d+),duration=([0-9.]+),bytes=(\\d+)$"));
    const QRegularExpressionMatch m = re.match(body);
    if (!m.hasMatch()) return false;
    out->packets = m.captured(1).toLongLong();
    out->ignored = m.captured(2).toLongLong();
    out->duration = m.captured(3).toDouble();
    out->bytes = m.captured(4).toLongLong();
    return true;
}

}  // namespace

QList<ChildEvent> ChildLineParser::feed(const QByteArray& bytes) {
    pending_ += bytes;
    QList<ChildEvent> events;
    qsizetype start = 0;
    for (qsizetype nl = pending_.indexOf('\n'); nl >= 0; nl = pending_.indexOf('\n', start)) {
        QByteArray line = pending_.mid(start, nl - start);
        if (line.endsWith('\r')) line.chop(1);
        events.append(parseLine(QString::fromUtf8(line)));
        start = nl + 1;
    }
    pending_.remove(0, start);
    return events;
}

QList<ChildEvent> ChildLineParser::finish() {
    QList<ChildEvent> events;
    if (!pending_.isEmpty()) events.append(parseLine(QString::fromUtf8(pending_)));
    pending_.clear();
    return events;
}

ChildEvent ChildLineParser::parseLine(const QString& line) {
    ChildEvent event;
    event.text = line;
    if (line.startsWith(QLatin1String("progress:"))) {
        bool ok = false;
        const double value = line.mid(9).toDouble(&ok);
        if (ok && value >= 0.0 && value <= 1.0) {
            event.kind = ChildEvent::Kind::Progress;
            event.value = value;
        }
        return event;
    }
    if (line.startsWith(QLatin1String("error:ret="))) {
        const qsizetype comma = line.indexOf(QLatin1String(",msg="));
        bool ok = false;
        const int code = line.mid(10, comma < 0 ? -1 : comma - 10).toInt(&ok);
        if (ok && comma > 0) {
            event.kind = ChildEvent::Kind::Error;
            event.code = code;
            event.text = line.mid(comma + 5);
        }
        return event;
    }
    if (line.startsWith(QLatin1String("summary:"))) {
        if (ParseSummary(line.mid(8), &event.summary)) event.kind = ChildEvent::Kind::Summary;
        return event;
    }
    if (line.startsWith(QLatin1String("pts:"))) {
        event.kind = ChildEvent::Kind::WriteError;
        return event;
    }
    static const QRegularExpression version(
        QStringLiteral("^\\[ERROR\\] version=(-?\\d+), parse failed$"));
    const QRegularExpressionMatch m = version.match(line);
    if (m.hasMatch()) {
        event.kind = ChildEvent::Kind::VersionError;
        event.code = m.captured(1).toInt();
    } else if (line == QLatin1String("End")) {
        event.kind = ChildEvent::Kind::End;
    }
    return event;
}
