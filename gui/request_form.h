#pragma once
// RequestForm: the fields of one repair: the damaged recording, its index file or a healthy
// reference recording, and the output.

#include <QWidget>

#include "repair_request.h"

class PathField;
class QFormLayout;
class QRadioButton;

class RequestForm : public QWidget {
    Q_OBJECT
  public:
    explicit RequestForm(QWidget* parent = nullptr);

    void setRequest(const RepairRequest& request, bool use_reference);
    // The fields' paths; the index or the reference is what the chosen mode uses.
    RepairRequest request() const;
    bool useReference() const;
    // Shows the choice of a reference recording; hidden while kinefix-index lacks it.
    void setRescueAvailable(bool available);
    PathField* damaged() const { return damaged_; }
    QList<PathField*> fields() const;

  signals:
    void edited();                                 // a path typed or chosen, or the mode switched
    void damagedChosen(const QStringList& paths);  // in the dialog; the first is in the field

  private:
    void damagedEdited();
    void updateRows();

    QFormLayout* form_;
    PathField* damaged_;
    QWidget* mode_row_;
    QRadioButton* use_index_;
    QRadioButton* use_reference_;
    PathField* index_;
    PathField* reference_;
    PathField* output_;
    QString shown_damaged_;
    bool rescue_available_ = false;
};
