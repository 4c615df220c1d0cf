#pragma once
// QueueView: the list of recordings to repair, with a drop hint in its place while it is empty.

#include <QStackedWidget>

class QListWidget;

class QueueView : public QStackedWidget {
    Q_OBJECT
  public:
    explicit QueueView(QWidget* parent = nullptr);

    QListWidget* list() const { return list_; }
    // Shows one recording as "NAME — state", its full path as the tool tip.
    void setEntry(int row, const QString& path, const QString& state);

  private:
    QListWidget* list_;
};
