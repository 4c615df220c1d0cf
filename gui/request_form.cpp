// RequestForm: layout of the path fields and the proposals that follow the damaged file.
#include "request_form.h"

#include <QButtonGroup>
#include <QDir>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>

#include "path_field.h"

namespace {

const char kVideoFilter[] = "Videos (*.mp4 *.mov *.m4v *.3gp *.mkv *.MP4 *.MOV);;All files (*)";

}  // namespace

RequestForm::RequestForm(QWidget* parent)
    : QWidget(parent),
      form_(new QFormLayout(this)),
      damaged_(new PathField(tr("&Damaged recording:"), PathField::Mode::OpenFiles, kVideoFilter)),
      mode_row_(new QWidget),
      use_index_(new QRadioButton(tr("Its inde&x file"))),
      use_reference_(new QRadioButton(tr("A healthy recording from the same &camera"))),
      index_(new PathField(tr("&Index file:"), PathField::Mode::OpenFile,
                           tr("Index files (*.idx);;All files (*)"))),
      reference_(new PathField(tr("&Healthy recording:"), PathField::Mode::OpenFile, kVideoFilter)),
      output_(new PathField(tr("&Output:"), PathField::Mode::SaveFile, kVideoFilter)) {
    form_->setContentsMargins(0, 0, 0, 0);
    damaged_->setObjectName(QStringLiteral("damaged"));
    index_->setObjectName(QStringLiteral("index"));
    reference_->setObjectName(QStringLiteral("reference"));
    output_->setObjectName(QStringLiteral("output"));
    use_index_->setObjectName(QStringLiteral("useIndex"));
    use_reference_->setObjectName(QStringLiteral("useReference"));
    reference_->edit()->setToolTip(
        tr("A recording that plays, made by the same camera with the same settings"));

    auto* mode_layout = new QHBoxLayout(mode_row_);
    mode_layout->setContentsMargins(0, 0, 0, 0);
    use_index_->setChecked(true);
    auto* group = new QButtonGroup(this);
    group->addButton(use_index_);
    group->addButton(use_reference_);
    mode_layout->addWidget(use_index_);
    mode_layout->addWidget(use_reference_);
    mode_layout->addStretch(1);

    form_->addRow(damaged_->label(), damaged_);
    form_->addRow(new QLabel(tr("Repair with:")), mode_row_);
    form_->addRow(index_->label(), index_);
    form_->addRow(reference_->label(), reference_);
    form_->addRow(output_->label(), output_);

    connect(use_reference_, &QRadioButton::toggled, this, [this] {
        updateRows();
        emit edited();
    });
    connect(damaged_, &PathField::edited, this, &RequestForm::damagedEdited);
    connect(damaged_, &PathField::chosen, this, [this](const QStringList& paths) {
        damagedEdited();
        emit damagedChosen(paths);
    });
    for (PathField* field : {index_, reference_, output_}) {
        connect(field, &PathField::edited, this, &RequestForm::edited);
        connect(field, &PathField::chosen, this, &RequestForm::edited);
    }
    setRescueAvailable(false);
}

void RequestForm::setRequest(const RepairRequest& request, bool use_reference) {
    const QSignalBlocker block(use_reference_);
    shown_damaged_ = request.damaged;
    damaged_->setPath(QDir::toNativeSeparators(request.damaged));
    index_->setPath(QDir::toNativeSeparators(request.index));
    reference_->setPath(QDir::toNativeSeparators(request.reference));
    output_->setPath(QDir::toNativeSeparators(request.output));
    use_reference_->setChecked(use_reference && rescue_available_);
    use_index_->setChecked(!use_reference_->isChecked());
    updateRows();
}

RepairRequest RequestForm::request() const {
    RepairRequest request;
    request.damaged = QDir::fromNativeSeparators(damaged_->path());
    request.index = QDir::fromNativeSeparators(index_->path());
    request.reference = QDir::fromNativeSeparators(reference_->path());
    request.output = QDir::fromNativeSeparators(output_->path());
    return request;
}

bool RequestForm::useReference() const {
    return rescue_available_ && use_reference_->isChecked();
}

void RequestForm::setRescueAvailable(bool available) {
    rescue_available_ = available;
    form_->setRowVisible(mode_row_, available);
    updateRows();
}

QList<PathField*> RequestForm::fields() const {
    return {damaged_, index_, reference_, output_};
}

// The index and output proposed for the damaged file follow it, unless the person has
// chosen them.
void RequestForm::damagedEdited() {
    const RepairRequest old = RepairRequest::forDamaged(shown_damaged_);
    shown_damaged_ = QDir::fromNativeSeparators(damaged_->path());
    const RepairRequest fresh = RepairRequest::forDamaged(shown_damaged_);
    if (index_->path().isEmpty() || index_->path() == QDir::toNativeSeparators(old.index))
        index_->setPath(QDir::toNativeSeparators(fresh.index));
    if (output_->path().isEmpty() || output_->path() == QDir::toNativeSeparators(old.output))
        output_->setPath(QDir::toNativeSeparators(fresh.output));
    emit edited();
}

void RequestForm::updateRows() {
    form_->setRowVisible(index_, !useReference());
    form_->setRowVisible(reference_, useReference());
}
