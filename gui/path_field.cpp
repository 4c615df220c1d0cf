// PathField: line edit, label buddy and file dialog of one path.
#include "path_field.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

PathField::PathField(const QString& label, Mode mode, const QString& filter, QWidget* parent)
    : QWidget(parent),
      mode_(mode),
      filter_(filter),
      label_(new QLabel(label)),
      edit_(new QLineEdit),
      browse_(new QPushButton(tr("Browse…"))) {
    label_->setBuddy(edit_);
    edit_->setClearButtonEnabled(true);
    edit_->setAccessibleName(QString(label).remove(QLatin1Char('&')).remove(QLatin1Char(':')));
    browse_->setAccessibleName(tr("Browse for %1").arg(edit_->accessibleName().toLower()));
    edit_->setMinimumWidth(edit_->fontMetrics().averageCharWidth() * 40);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(edit_, 1);
    layout->addWidget(browse_);
    connect(edit_, &QLineEdit::textEdited, this, &PathField::edited);
    connect(browse_, &QPushButton::clicked, this, &PathField::browse);
}

QString PathField::path() const {
    return edit_->text().trimmed();
}

void PathField::setPath(const QString& path) {
    if (edit_->text() != path) edit_->setText(path);
}

void PathField::browse() {
    const QString current = path();
    const QString folder =
        current.isEmpty() ? start_folder_ : QFileInfo(current).absoluteFilePath();
    const QString title = edit_->accessibleName();
    QStringList picked;
    if (mode_ == Mode::OpenFiles) {
        picked = QFileDialog::getOpenFileNames(this, title, folder, filter_);
    } else if (mode_ == Mode::OpenFile) {
        const QString one = QFileDialog::getOpenFileName(this, title, folder, filter_);
        if (!one.isEmpty()) picked.append(one);
    } else {
        const QString one = QFileDialog::getSaveFileName(this, title, folder, filter_);
        if (!one.isEmpty()) picked.append(one);
    }
    if (picked.isEmpty()) return;
    setPath(picked.first());
    emit chosen(picked);
}
