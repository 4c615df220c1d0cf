#pragma once
// HumanText: what the console programs say, and the numbers they report, in words a person
// understands.

#include <QString>

class HumanText {
  public:
    // The sentence for an `error:` line's message.
    static QString errorSentence(const QString& message);
    // The sentence for one line of a child's standard error; empty for lines a person need
    // not see (FFmpeg's stream listing, progress chatter).
    static QString stderrSentence(const QString& line);
    // "3.2 s", "1 min 05 s", "1 h 02 min".
    static QString duration(double seconds);
    // "512 bytes", "1.4 MB", "2.10 GB" (decimal units, as file managers show them).
    static QString size(qint64 bytes);
};
