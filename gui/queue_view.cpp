// QueueView: the queue's list and its empty state.
#include "queue_view.h"

#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>

QueueView::QueueView(QWidget* parent) : QStackedWidget(parent), list_(new QListWidget) {
    list_->setObjectName(QStringLiteral("queue"));
    list_->setAccessibleName(tr("Recordings to repair"));
    list_->setMinimumHeight(list_->fontMetrics().height() * 4);
    auto* hint = new QLabel(tr("Drop damaged recordings here,\nor choose one with Browse… below."));
    hint->setObjectName(QStringLiteral("dropHint"));
    hint->setAlignment(Qt::AlignCenter);
    hint->setFrameShape(QFrame::StyledPanel);
    hint->setEnabled(false);  // drawn greyed: a hint, not a control
    addWidget(hint);
    addWidget(list_);
}

void QueueView::setEntry(int row, const QString& path, const QString& state) {
    setCurrentWidget(list_);
    QListWidgetItem* item = list_->item(row);
    if (!item) return;
    item->setText(QStringLiteral("%1 — %2").arg(QFileInfo(path).fileName(), state));
    item->setToolTip(QDir::toNativeSeparators(path));
}
