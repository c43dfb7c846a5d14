#ifndef STRINGS_QRTKEPTSIZE_H
#define STRINGS_QRTKEPTSIZE_H

#include "QRTVirtualPageItem.h"

/// Keeps a string's size while room is made for another one. A trim notes the lower size first,
/// also when the object then cannot be read: without this the old string would have lost its end.
class QRTKeptSize {
 public:
  explicit QRTKeptSize(QRTVirtualPageItem& handle) noexcept
      : m_handle(&handle), m_size(handle.getSize()) {}
  ~QRTKeptSize() {
    if (m_handle != nullptr) {
      m_handle->setSize(m_size);
    }
  }
  QRTKeptSize(const QRTKeptSize&) = delete;
  QRTKeptSize& operator=(const QRTKeptSize&) = delete;

  /// There is room: the handle has the new size.
  void give() noexcept { m_handle = nullptr; }

 private:
  QRTVirtualPageItem* m_handle;  // the string; null once there is room
  unsigned int m_size;           // its size before
};

#endif  // STRINGS_QRTKEPTSIZE_H
