#pragma once
// ProgressEstimate: elapsed time and the time left of a run whose progress is a fraction.

#include <QElapsedTimer>
#include <QString>

class ProgressEstimate {
  public:
    void start();
    void update(double fraction);
    double fraction() const { return fraction_; }
    qint64 elapsedMs() const;
    // Seconds left at the pace so far; negative while too little is known to say.
    double remainingSeconds() const;
    static double remainingSeconds(double fraction, qint64 elapsed_ms);
    // "0:07", "1:02:03".
    static QString clock(qint64 seconds);
    // "0:12 elapsed, about 0:30 left" (or without the estimate).
    QString text() const;

  private:
    QElapsedTimer timer_;
    double fraction_ = 0.0;
};
