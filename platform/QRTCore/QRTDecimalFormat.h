#ifndef QRTCORE_QRTDECIMALFORMAT_H
#define QRTCORE_QRTDECIMALFORMAT_H

#include <ostream>

/// Has a caller's stream write integers in decimal while this stands, and gives it its own format
/// back. Every text that is written for a host to read puts one around its numbers.
class QRTDecimalFormat {
 public:
  /// @param os  the stream; must outlive this
  explicit QRTDecimalFormat(std::ostream& os)
      : m_os(os), m_flags(os.setf(std::ios_base::dec, std::ios_base::basefield)) {}

  ~QRTDecimalFormat() { m_os.flags(m_flags); }

  QRTDecimalFormat(const QRTDecimalFormat&) = delete;
  QRTDecimalFormat& operator=(const QRTDecimalFormat&) = delete;

 private:
  std::ostream& m_os;               // the caller's stream, not owned
  std::ios_base::fmtflags m_flags;  // its format, as it was
};

#endif  // QRTCORE_QRTDECIMALFORMAT_H
