// ProgressEstimate: a linear estimate of the time left from the pace so far.
#include "progress_estimate.h"

#include <QCoreApplication>

QString ProgressEstimate::clock(qint64 seconds) {
    if (seconds >= 3600)
        return QStringLiteral("%1:%2:%3")
            .arg(seconds / 3600)
            .arg((seconds % 3600) / 60, 2, 10, QLatin1Char('0'))
            .arg(seconds % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

void ProgressEstimate::start() {
    timer_.start();
    fraction_ = 0.0;
}

void ProgressEstimate::update(double fraction) {
    fraction_ = qBound(0.0, fraction, 1.0);
}

qint64 ProgressEstimate::elapsedMs() const {
    return timer_.isValid() ? timer_.elapsed() : 0;
}

double ProgressEstimate::remainingSeconds() const {
    return remainingSeconds(fraction_, elapsedMs());
}

// The first percent and the first half second say little about the pace of the rest.
double ProgressEstimate::remainingSeconds(double fraction, qint64 elapsed_ms) {
    if (fraction < 0.01 || elapsed_ms < 500) return -1.0;
    return static_cast<double>(elapsed_ms) / 1000.0 * (1.0 - fraction) / fraction;
}

QString ProgressEstimate::text() const {
    const QString elapsed = QCoreApplication::translate("ProgressEstimate", "%1 elapsed")
                                .arg(clock(elapsedMs() / 1000));
    const double left = remainingSeconds();
    if (left < 0) return elapsed;
    return QCoreApplication::translate("ProgressEstimate", "%1, about %2 left")
        .arg(elapsed, clock(qMax<qint64>(1, qRound64(left))));
}
