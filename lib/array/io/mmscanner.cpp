// The MatrixMarket scanner: lines from memory or a stream, tokens, numbers,
// and the file-level errors.
#include "io/mmscanner.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <istream>
#include <system_error>

#include "qvarray/io/matrixmarket.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

FileBadAlloc::FileBadAlloc(std::string file, size_t line, std::string reason)
    : file_(std::move(file)), line_(line), reason_(std::move(reason)) {
  what_ = "bad allocation" + (reason_.empty() ? std::string() : ": " + reason_) +
          "; File = " + file_ + "; Line = " + std::to_string(line_);
}

const char* FileBadAlloc::what() const noexcept { return what_.c_str(); }

namespace mmio {

Tokens::Tokens(std::string_view line) {
  size_t i = 0;
  while (true) {
    while (i < line.size() && isBlank(line[i])) ++i;
    if (i == line.size()) break;
    const size_t start = i;
    while (i < line.size() && !isBlank(line[i])) ++i;
    if (count < kMax) tok[count] = line.substr(start, i - start);
    ++count;
  }
}

std::string quote(std::string_view text) {
  constexpr size_t kShown = 40;
  if (text.size() <= kShown) return "'" + std::string(text) + "'";
  return "'" + std::string(text.substr(0, kShown)) + "...'";
}

qvbase::DetailPairs errorDetails(const std::string& sentence, const std::string& name,
                                 size_t line) {
  return {{"", sentence}, {"File", name}, {"Line", std::to_string(line)}};
}

Scanner::Scanner(std::string_view text, const std::string& name)
    : data_(text), name_(name), sizeHint_(text.size()) {}

Scanner::Scanner(std::istream& in, const std::string& name, size_t sizeHint)
    : in_(&in), name_(name), sizeHint_(sizeHint) {}

// Moves the unread text to the front of the buffer and appends the next
// piece of the stream. False when the stream has nothing more.
bool Scanner::refill() {
  if (!in_ || !*in_) return false;
  buf_.erase(0, pos_);
  searched_ -= pos_;
  pos_ = 0;
  const size_t old = buf_.size();
  buf_.resize(old + kChunk);
  in_->read(buf_.data() + old, static_cast<std::streamsize>(kChunk));
  const auto got = static_cast<size_t>(in_->gcount());
  buf_.resize(old + got);
  data_ = buf_;
  if (in_->bad())
    QV_RAISE(matrixmarket, Cannot_read_file,
             qvbase::DetailPairs{{"File", name_}, {"Line", std::to_string(line_ + 1)}});
  return got > 0;
}

bool Scanner::nextLine(std::string_view& line) {
  size_t end;
  while ((end = data_.find('\n', searched_)) == std::string_view::npos) {
    searched_ = data_.size();
    if (!refill()) break;
  }
  if (end == std::string_view::npos) {
    if (pos_ == data_.size()) return false;  // nothing after the last line end
    end = data_.size();
  }
  line = data_.substr(pos_, end - pos_);
  pos_ = searched_ = end == data_.size() ? end : end + 1;
  ++line_;
  return true;
}

bool Scanner::nextDataLine(std::string_view& line) {
  while (nextLine(line)) {
    size_t i = 0;
    while (i < line.size() && isBlank(line[i])) ++i;
    if (i < line.size() && line[i] != '%') return true;
  }
  return false;
}

void Scanner::fail(const std::string& sentence, int where) const {
  failAt(line_, sentence, where);
}

void Scanner::failAt(size_t line, const std::string& sentence, int where) const {
  qvbase::raise(qvbase::ErrModule::matrixmarket, where, qvbase::ErrKey::Invalid_MatrixMarket_file,
                errorDetails(sentence, name_, line));
}

size_t Scanner::count(std::string_view tok, const char* what, int where) const {
  size_t v = 0;
  if (!qvutil::scanCount(tok, v))
    fail(std::string("Invalid ") + what + " " + quote(tok) + ".", where);
  return v;
}

double Scanner::real(std::string_view tok, int where) const {
  double v = 0;
  switch (qvutil::scanDouble(tok, v)) {
    case qvutil::NumberScan::Ok: break;
    case qvutil::NumberScan::Invalid: fail("Invalid number " + quote(tok) + ".", where);
    case qvutil::NumberScan::OutOfRange: fail("Number " + quote(tok) + " is out of range.", where);
  }
  return v;
}

double Scanner::integer(std::string_view tok, int where) const {
  const size_t sign = !tok.empty() && (tok[0] == '+' || tok[0] == '-');
  bool digits = tok.size() > sign;
  for (size_t k = sign; k < tok.size(); ++k) digits = digits && tok[k] >= '0' && tok[k] <= '9';
  if (!digits) fail("Invalid integer " + quote(tok) + ".", where);
  return real(tok, where);
}

namespace {

[[noreturn]] void openError(qvbase::ErrKey key, int line, const std::string& path,
                            const std::string& reason) {
  qvbase::raise(qvbase::ErrModule::matrixmarket, line, key,
                qvbase::DetailPairs{{"File", path}, {"Reason", reason}});
}

}  // namespace

std::ifstream openForReading(const std::string& path, size_t& size) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec))
    openError(qvbase::ErrKey::Cannot_open_file, __LINE__, path, "Is a directory");
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in)
    openError(qvbase::ErrKey::Cannot_open_file, __LINE__, path,
              errno ? std::strerror(errno) : "cannot be opened");
  const auto bytes = std::filesystem::file_size(path, ec);
  size = ec ? 0 : static_cast<size_t>(bytes);
  return in;
}

std::ofstream openForWriting(const std::string& path) {
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out)
    openError(qvbase::ErrKey::Cannot_write_file, __LINE__, path,
              errno ? std::strerror(errno) : "cannot be opened");
  return out;
}

void closeWritten(std::ofstream& out, const std::string& path) {
  out.close();
  if (!out) openError(qvbase::ErrKey::Cannot_write_file, __LINE__, path, "write failed");
}

}  // namespace mmio
}  // namespace qvarray
