#pragma once
// RepairRequest: the paths of one repair, with the index and the output a person would pick.

#include <QString>

struct RepairRequest {
    QString damaged;
    QString index;      // the recording's index file; empty on the rescue path
    QString reference;  // a healthy recording of the same camera (rescue path)
    QString output;

    bool rescue() const { return index.isEmpty() && !reference.isEmpty(); }

    // A request for a damaged file: NAME.idx beside it when there is one, the output
    // proposed as NAME-repaired.EXT beside it.
    static RepairRequest forDamaged(const QString& damaged);
    static QString siblingIndex(const QString& damaged);
    static QString proposedOutput(const QString& damaged);
    // Empty when the request can run, else what is missing, in words.
    QString problem(bool rescue_available) const;
};
