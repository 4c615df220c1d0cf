#pragma once
// PathField: a labelled, editable path with a Browse button that opens a file dialog.

#include <QWidget>

class QLabel;
class QLineEdit;
class QPushButton;

class PathField : public QWidget {
    Q_OBJECT
  public:
    enum class Mode { OpenFiles, OpenFile, SaveFile };

    // `label` carries its mnemonic ("&Damaged recording:"); `filter` is the dialog's.
    PathField(const QString& label, Mode mode, const QString& filter, QWidget* parent = nullptr);

    QString path() const;
    void setPath(const QString& path);
    QLabel* label() const { return label_; }
    QLineEdit* edit() const { return edit_; }
    QPushButton* browseButton() const { return browse_; }
    // The folder the dialog opens in when the field is empty.
    void setStartFolder(const QString& folder) { start_folder_ = folder; }

  signals:
    void edited(const QString& path);       // typed by the user
    void chosen(const QStringList& paths);  // picked in the dialog

  private:
    void browse();

    Mode mode_;
    QString filter_;
    QString start_folder_;
    QLabel* label_;
    QLineEdit* edit_;
    QPushButton* browse_;
};
