// The preview window for one file, toggled with Space from the browser's list: an image scaled to
// fit, the beginning of a text file, or for anything else its icon, type and size. The file is
// read on the thread pool; a newer file replaces a pending one (results carry a generation).
#pragma once

#include <QImage>
#include <QString>
#include <QWidget>
#include <cstdint>
#include <string>

class QLabel;
class QPlainTextEdit;
class QStackedWidget;

namespace tw {

// What a preview shows, read from the file.
struct PreviewContent {
  enum class Kind { kMissing, kImage, kText, kOther };
  Kind kind = Kind::kOther;
  QImage image;          // kImage, already scaled to fit
  QString text;          // kText: at most kPreviewTextLimit bytes, decoded as UTF-8
  QString typeName;      // the MIME type's description
  QString mimeIconName;  // for the icon of kOther
};

inline constexpr int64_t kPreviewTextLimit = 256 * 1024;

// Reads what the preview of the file at `path` (raw bytes) shows; images are scaled to fit
// within `bounds`. Safe on any thread; never blocks on special files.
PreviewContent readPreviewContent(const std::string& path, QSize bounds);

class PreviewWindow : public QWidget {
  Q_OBJECT

 public:
  explicit PreviewWindow(QWidget* parent = nullptr);

  // Shows the file at `path` named `name` with its scanned `size`; the window shows itself.
  void showFile(const std::string& path, const QString& name, uint64_t size);
  const std::string& path() const { return path_; }
  // The kind of what is shown (kOther until the file has been read).
  PreviewContent::Kind shownKind() const { return kind_; }
  QString shownText() const;

 signals:
  // The file has been read and its content is on screen.
  void contentShown();

 protected:
  // Space and Escape close the window, as Space in the list does.
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void present(const PreviewContent& content);

  std::string path_;
  QString name_;
  uint64_t size_ = 0;
  uint64_t generation_ = 0;
  PreviewContent::Kind kind_ = PreviewContent::Kind::kOther;
  QStackedWidget* pages_ = nullptr;
  QLabel* imageLabel_ = nullptr;
  QPlainTextEdit* textView_ = nullptr;
  QLabel* iconLabel_ = nullptr;
  QLabel* infoLabel_ = nullptr;
  QWidget* infoPage_ = nullptr;
};

}  // namespace tw
