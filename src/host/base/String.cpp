#include "base/String.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <stdexcept>

#include "base/Memory.h"
#include "base/StringExtras.h"
#include "base/WideText.h"
#include "base/WideTextExtras.h"

// The plug-in keeps millions of short values, so storage is compact: text of
// characters up to U+00FF is held a byte a character (inline up to
// kInlineCapacity), other text as wchar_t, and copies share their heap
// storage until one of them changes, counting sharers atomically.
// docs/performance.md has the figures.

namespace {

// length() reports an int.
constexpr std::size_t kMaxLength = 0x7fffffff;
constexpr std::size_t kMinHeapCapacity = 32;

void checkLength(std::size_t count) {
  if (count > kMaxLength) throw std::length_error("String: text too long");
}

// Whether every character is at most U+00FF, so that a byte holds it.
bool fitsBytes(const wchar_t* text, std::size_t count) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < count; ++i) bits |= hostCodePoint(text[i]);
  return bits <= 0xFF;
}

void narrowCopy(unsigned char* out, const wchar_t* text, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(text[i]);
}

void widenCopy(wchar_t* out, const unsigned char* text, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<wchar_t>(text[i]);
}

// Orders code points as unsigned values, so that the order does not depend
// on the signedness of wchar_t; a proper prefix orders first.
int compareWide(const wchar_t* a, std::size_t na, const wchar_t* b, std::size_t nb) {
  const std::size_t n = na < nb ? na : nb;
  std::size_t i = 0;
  // Equal stretches are passed over two characters at a time.
  for (; i + 2 <= n; i += 2) {
    std::uint64_t x;
    std::uint64_t y;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    if (x != y) break;
  }
  for (; i < n; ++i) {
    const std::uint32_t ca = hostCodePoint(a[i]);
    const std::uint32_t cb = hostCodePoint(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (na == nb) return 0;
  return na < nb ? -1 : 1;
}

int compareBytes(const unsigned char* a, std::size_t na, const unsigned char* b, std::size_t nb) {
  // memcmp orders unsigned bytes, which are the code points here.
  const int c = std::memcmp(a, b, na < nb ? na : nb);
  if (c != 0) return c < 0 ? -1 : 1;
  if (na == nb) return 0;
  return na < nb ? -1 : 1;
}

// Heap storage is one block: this header, then the characters and a zero
// after them. The header is 8 bytes, so the characters stay aligned for
// wchar_t. Its count of sharers changes only here, with atomic operations,
// so that copies of one text can live on different threads.
struct StorageHeader {
  std::uint32_t sharers;
  std::uint32_t unused;
};
constexpr std::size_t kHeaderSize = sizeof(StorageHeader);
static_assert(kHeaderSize % alignof(wchar_t) == 0, "characters after the header stay aligned");

// Storage for capacity characters of charSize bytes and the zero after them,
// with one sharer (std::bad_alloc when there is no room).
void* allocateStorage(std::size_t capacity, std::size_t charSize) {
  void* block = ::operator new(kHeaderSize + (capacity + 1) * charSize);
  static_cast<StorageHeader*>(block)->sharers = 1;
  return static_cast<unsigned char*>(block) + kHeaderSize;
}

StorageHeader* headerOf(const void* data) {
  return reinterpret_cast<StorageHeader*>(
      const_cast<unsigned char*>(static_cast<const unsigned char*>(data) - kHeaderSize));
}

void addSharer(const void* data) noexcept {
  __atomic_add_fetch(&headerOf(data)->sharers, 1, __ATOMIC_RELAXED);
}

// Drops one sharer; the last one frees the block.
void dropSharer(const void* data) noexcept {
  StorageHeader* header = headerOf(data);
  if (__atomic_sub_fetch(&header->sharers, 1, __ATOMIC_ACQ_REL) == 0) ::operator delete(header);
}

}  // namespace

// ------------------------------------------------------------ representation

String::String(String&& other) noexcept
    : m_View(other.m_View), m_Size(other.m_Size), m_Kind(other.m_Kind) {
  steal(other);
}

String& String::operator=(String&& other) noexcept {
  if (this == &other) return *this;
  if (ownsMemory()) release();
  m_View = other.m_View;
  m_Size = other.m_Size;
  m_Kind = other.m_Kind;
  steal(other);
  return *this;
}

String::~String() {
  if (ownsMemory()) release();
}

void String::dropView() noexcept {
  if (m_View == nullptr) return;
  delete[] m_View;
  m_View = nullptr;
}

void String::release() noexcept {
  dropView();
  if (m_Kind != kInline) dropSharer(heap().data);
  m_Kind = kInline;
  m_Size = 0;
}

bool String::shared() const noexcept {
  if (m_Kind == kInline) return false;
  return __atomic_load_n(&headerOf(heap().data)->sharers, __ATOMIC_ACQUIRE) > 1;
}

void String::shareFrom(const String& other) noexcept {
  // Only for a string that holds nothing (no storage, no view).
  std::memcpy(m_Store, other.m_Store, kInlineCapacity);
  m_Size = other.m_Size;
  m_Kind = other.m_Kind;
  if (m_Kind != kInline) addSharer(heap().data);
}

void String::unshare() {
  if (!shared()) return;
  const Heap h = heap();
  void* data = nullptr;
  if (m_Kind == kWide) {
    data = allocateStorage(h.size, sizeof(wchar_t));
    std::wmemcpy(static_cast<wchar_t*>(data), static_cast<const wchar_t*>(h.data), h.size + 1);
  } else {
    data = allocateStorage(h.size, 1);
    std::memcpy(data, h.data, h.size + 1);
  }
  dropSharer(h.data);
  setHeap(Heap{data, h.size, h.size});
}

void String::setSize(std::size_t count) {
  if (m_Kind == kInline) {
    m_Size = static_cast<std::uint8_t>(count);
    return;
  }
  Heap h = heap();
  h.size = static_cast<std::uint32_t>(count);
  setHeap(h);
  if (m_Kind == kWide) {
    wide()[count] = L'\0';
  } else {
    bytes()[count] = 0;
  }
}

void String::assignBytes(const unsigned char* text, std::size_t count) {
  checkLength(count);
  if (count <= kInlineCapacity) {
    // Callers never hand in this string's own storage.
    if (ownsMemory()) release();
    std::memcpy(m_Store, text, count);
    m_Size = static_cast<std::uint8_t>(count);
    return;
  }
  // The new storage is made before the old is let go: a string that cannot
  // get room keeps its text.
  auto* data = static_cast<unsigned char*>(allocateStorage(count, 1));
  std::memcpy(data, text, count);
  data[count] = 0;
  if (ownsMemory()) release();
  m_Kind = kBytes;
  setHeap(Heap{data, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(count)});
}

void String::assignWide(const wchar_t* text, std::size_t count) {
  checkLength(count);
  if (count <= kInlineCapacity) {
    // Copied and checked in one pass; the common case ends here. Callers
    // never hand in this string's own storage.
    if (ownsMemory()) release();
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
      bits |= hostCodePoint(text[i]);
      m_Store[i] = static_cast<unsigned char>(text[i]);
    }
    if (bits <= 0xFF) {
      m_Size = static_cast<std::uint8_t>(count);
      return;
    }
  }
  void* data = nullptr;
  Kind kind = kWide;
  if (count > kInlineCapacity && fitsBytes(text, count)) {
    auto* narrow = static_cast<unsigned char*>(allocateStorage(count, 1));
    narrowCopy(narrow, text, count);
    narrow[count] = 0;
    data = narrow;
    kind = kBytes;
  } else {
    auto* wideData = static_cast<wchar_t*>(allocateStorage(count, sizeof(wchar_t)));
    std::wmemcpy(wideData, text, count);
    wideData[count] = L'\0';
    data = wideData;
  }
  if (ownsMemory()) release();
  m_Kind = kind;
  setHeap(Heap{data, static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(count)});
}

void String::makeRoom(std::size_t count, bool wideNeeded) {
  checkLength(count);
  const std::size_t n = size();
  const std::size_t capacity =
      m_Kind == kInline ? kInlineCapacity : static_cast<std::size_t>(heap().capacity);
  const bool switchToWide = wideNeeded && m_Kind != kWide;
  const bool own = !shared();
  if (!switchToWide && count <= capacity && own) return;
  std::size_t grown = count;
  if (count > capacity)
    grown = std::min(kMaxLength, std::max({count, capacity * 2, kMinHeapCapacity}));
  if (m_Kind == kWide || switchToWide) {
    auto* data = static_cast<wchar_t*>(allocateStorage(grown, sizeof(wchar_t)));
    if (m_Kind == kWide) {
      std::wmemcpy(data, wide(), n);
      dropSharer(wide());
    } else {
      widenCopy(data, bytes(), n);
      if (m_Kind == kBytes) dropSharer(bytes());
    }
    data[n] = L'\0';
    m_Kind = kWide;
    setHeap(Heap{data, static_cast<std::uint32_t>(n), static_cast<std::uint32_t>(grown)});
    return;
  }
  auto* data = static_cast<unsigned char*>(allocateStorage(grown, 1));
  std::memcpy(data, bytes(), n);
  data[n] = 0;
  if (m_Kind == kBytes) dropSharer(bytes());
  m_Kind = kBytes;
  setHeap(Heap{data, static_cast<std::uint32_t>(n), static_cast<std::uint32_t>(grown)});
}

void String::appendBytes(const unsigned char* text, std::size_t count) {
  if (count == 0) return;
  const std::size_t n = size();
  // A text whose wide form was asked for grows wide: it is likely to be
  // asked for again, and widening all of it after every append would make
  // a text built and read a piece at a time cost the square of its length.
  makeRoom(n + count, m_View != nullptr);
  if (m_Kind == kWide) {
    widenCopy(wide() + n, text, count);
  } else {
    std::memcpy(bytes() + n, text, count);
  }
  setSize(n + count);
  dropView();
}

void String::appendWide(const wchar_t* text, std::size_t count) {
  if (count == 0) return;
  const std::size_t n = size();
  if (m_Kind != kWide && m_View == nullptr && fitsBytes(text, count)) {
    makeRoom(n + count, false);
    narrowCopy(bytes() + n, text, count);
  } else {
    makeRoom(n + count, true);
    std::wmemcpy(wide() + n, text, count);
  }
  setSize(n + count);
  dropView();
}

// ------------------------------------------------------------ construction

String::String(const wchar_t* text) : String() {
  if (text != nullptr) assignWide(text, std::wcslen(text));
}

String::String(const wchar_t* text, std::size_t count) : String() {
  if (text != nullptr) assignWide(text, count);
}

String::String(const char* text)
    : String(text, text != nullptr ? std::strlen(text) : std::size_t{0}) {}

String::String(const char* text, std::size_t count) : String() {
  if (text == nullptr) return;
  if (count <= kInlineCapacity) {
    // Copied and checked in one pass; the common case ends here.
    unsigned char bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
      bits |= static_cast<unsigned char>(text[i]);
      m_Store[i] = static_cast<unsigned char>(text[i]);
    }
    if (bits < 0x80) {
      m_Size = static_cast<std::uint8_t>(count);
      return;
    }
  } else if (hostIsAscii(text, count)) {
    assignBytes(reinterpret_cast<const unsigned char*>(text), count);
    return;
  }
  const std::wstring decoded = hostDecodeNarrow(text, count);
  assignWide(decoded.data(), decoded.size());
}

String::String(const String& other) : String() { shareFrom(other); }

String& String::operator=(const String& other) {
  if (this == &other) return *this;
  if (m_Kind != kInline && m_Kind == other.m_Kind && heap().data == other.heap().data) return *this;
  if (ownsMemory()) release();
  shareFrom(other);
  return *this;
}

// ------------------------------------------------------------ reading

wchar_t String::charAt(int index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= size()) return 0;
  return static_cast<wchar_t>(at(static_cast<std::size_t>(index)));
}

int String::indexOf(wchar_t c, int from) const {
  if (from < 0) from = 0;
  const std::size_t n = size();
  if (static_cast<std::size_t>(from) >= n) return -1;
  const auto begin = static_cast<std::size_t>(from);
  if (m_Kind == kWide) {
    const wchar_t* found = std::wmemchr(wide() + begin, c, n - begin);
    return found == nullptr ? -1 : static_cast<int>(found - wide());
  }
  if (hostCodePoint(c) > 0xFF) return -1;
  const auto* found = static_cast<const unsigned char*>(std::memchr(bytes() + begin, c, n - begin));
  return found == nullptr ? -1 : static_cast<int>(found - bytes());
}

String String::substring(int begin) const { return substring(begin, length() - 1); }

String String::substring(int begin, int end) const {
  if (begin < 0) begin = 0;
  if (end >= length()) end = length() - 1;
  String result;
  if (begin > end) return result;
  const auto first = static_cast<std::size_t>(begin);
  const std::size_t count = static_cast<std::size_t>(end) - first + 1;
  if (m_Kind == kWide) {
    result.assignWide(wide() + first, count);
  } else {
    result.assignBytes(bytes() + first, count);
  }
  return result;
}

bool String::startsWith(const String& prefix, int offset) const {
  if (offset < 0 || offset > length()) return false;
  const std::size_t n = prefix.size();
  const auto from = static_cast<std::size_t>(offset);
  if (n > size() - from) return false;
  if (m_Kind != kWide && prefix.m_Kind != kWide)
    return std::memcmp(bytes() + from, prefix.bytes(), n) == 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (at(from + i) != prefix.at(i)) return false;
  }
  return true;
}

int String::compareTo(const String& other, int ignoreCase) const {
  const std::size_t na = size();
  const std::size_t nb = other.size();
  if (ignoreCase != 0) {
    // As i_wcsicmp on the two texts: the first zero character ends a text.
    for (std::size_t i = 0;; ++i) {
      const std::uint32_t ca =
          i < na ? hostCodePoint(hostFoldCase(static_cast<wchar_t>(at(i)))) : 0;
      const std::uint32_t cb =
          i < nb ? hostCodePoint(hostFoldCase(static_cast<wchar_t>(other.at(i)))) : 0;
      if (ca != cb) return ca < cb ? -1 : 1;
      if (ca == 0) return 0;
    }
  }
  if (m_Kind != kWide && other.m_Kind != kWide) return compareBytes(bytes(), na, other.bytes(), nb);
  if (m_Kind == kWide && other.m_Kind == kWide) return compareWide(wide(), na, other.wide(), nb);
  const std::size_t n = na < nb ? na : nb;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t ca = at(i);
    const std::uint32_t cb = other.at(i);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (na == nb) return 0;
  return na < nb ? -1 : 1;
}

int String::compareTo(const wchar_t* other) const {
  // As against String(other): null is the empty string.
  if (other == nullptr) other = L"";
  const std::size_t na = size();
  const std::size_t nb = std::wcslen(other);
  if (m_Kind == kWide) return compareWide(wide(), na, other, nb);
  const std::size_t n = na < nb ? na : nb;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t ca = at(i);
    const std::uint32_t cb = hostCodePoint(other[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (na == nb) return 0;
  return na < nb ? -1 : 1;
}

bool StringAccess::equals(const String& a, const String& b) {
  const std::size_t n = a.size();
  if (n != b.size()) return false;
  // Copies of one text share its storage.
  if (a.m_Kind != String::kInline && a.m_Kind == b.m_Kind && a.heap().data == b.heap().data)
    return true;
  if (a.m_Kind != String::kWide && b.m_Kind != String::kWide) {
    return std::memcmp(a.bytes(), b.bytes(), n) == 0;
  }
  if (a.m_Kind == String::kWide && b.m_Kind == String::kWide) {
    return std::wmemcmp(a.wide(), b.wide(), n) == 0;
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (a.at(i) != b.at(i)) return false;
  }
  return true;
}

const wchar_t* String::c_str() const {
  if (m_Kind == kWide) return wide();
  const std::size_t n = size();
  if (n == 0) return L"";
  wchar_t* view = __atomic_load_n(&m_View, __ATOMIC_ACQUIRE);
  if (view != nullptr) return view;
  auto* made = new wchar_t[n + 1];
  widenCopy(made, bytes(), n);
  made[n] = L'\0';
  // Readers on other threads may race to make the view: one copy wins and
  // the others are dropped.
  wchar_t* expected = nullptr;
  if (!__atomic_compare_exchange_n(&m_View, &expected, made, false, __ATOMIC_ACQ_REL,
                                   __ATOMIC_ACQUIRE)) {
    delete[] made;
    return expected;
  }
  return made;
}

std::wstring StringAccess::wstr(const String& s) {
  if (s.m_Kind == String::kWide) return std::wstring(s.wide(), s.size());
  const std::size_t n = s.size();
  std::wstring out(n, L'\0');
  widenCopy(&out[0], s.bytes(), n);
  return out;
}

std::size_t StringAccess::hash(const String& s) {
  // FNV-1a over the code points.
  std::uint64_t h = 14695981039346656037ULL;
  const std::size_t n = s.size();
  for (std::size_t i = 0; i < n; ++i) {
    h ^= s.at(i);
    h *= 1099511628211ULL;
  }
  return static_cast<std::size_t>(h);
}

std::string String::toNarrow() const {
  std::string out;
  StringAccess::appendNarrow(*this, out);
  return out;
}

void StringAccess::appendNarrow(const String& s, std::string& out) {
  const std::size_t n = s.size();
  if (s.m_Kind == String::kWide) {
    hostEncodeNarrowAppend(out, s.wide(), n);
    return;
  }
  const auto* text = reinterpret_cast<const char*>(s.bytes());
  if (hostIsAscii(text, n)) {
    out.append(text, n);
    return;
  }
  const std::wstring widened = wstr(s);
  hostEncodeNarrowAppend(out, widened.data(), n);
}

char* StringAccess::toNarrowDup(const String& s) {
  std::string narrow = s.toNarrow();
  auto* copy = static_cast<char*>(zelm_malloc(narrow.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, narrow.c_str(), narrow.size() + 1);
  return copy;
}

const char* StringAccess::asciiView(const String& s) noexcept {
  if (s.m_Kind != String::kBytes) return nullptr;
  const String::Heap h = s.heap();
  const auto* text = static_cast<const char*>(h.data);
  return hostIsAscii(text, h.size) ? text : nullptr;
}

// ------------------------------------------------------------ changing

String& String::concat(const String& text) {
  if (&text == this) {
    // Growing may move the storage being read: append a copy.
    const String copy(text);  // NOLINT(performance-unnecessary-copy-initialization)
    return concat(copy);
  }
  if (text.m_Kind == kWide) {
    appendWide(text.wide(), text.size());
  } else {
    appendBytes(text.bytes(), text.size());
  }
  return *this;
}

String& String::concat(const wchar_t* text) {
  if (text == nullptr) return *this;
  const std::size_t count = std::wcslen(text);
  // A text taken from this string's own storage is copied first: growing
  // may move that storage.
  const bool own = (m_Kind == kWide && text >= wide() && text <= wide() + size()) ||
                   (m_View != nullptr && text >= m_View && text <= m_View + size());
  if (own) {
    const std::wstring copy(text, count);
    appendWide(copy.data(), count);
  } else {
    appendWide(text, count);
  }
  return *this;
}

String& String::concat(const char* text) {
  if (text == nullptr) return *this;
  const std::size_t count = std::strlen(text);
  if (hostIsAscii(text, count)) {
    appendBytes(reinterpret_cast<const unsigned char*>(text), count);
  } else {
    const std::wstring decoded = hostDecodeNarrow(text, count);
    appendWide(decoded.data(), decoded.size());
  }
  return *this;
}

String& String::concat(wchar_t c) {
  appendWide(&c, 1);
  return *this;
}

String& String::deleteCharAt(int index) {
  const std::size_t n = size();
  if (index < 0 || static_cast<std::size_t>(index) >= n) return *this;
  unshare();
  const auto i = static_cast<std::size_t>(index);
  if (m_Kind == kWide) {
    std::wmemmove(wide() + i, wide() + i + 1, n - i - 1);
  } else {
    std::memmove(bytes() + i, bytes() + i + 1, n - i - 1);
  }
  setSize(n - 1);
  dropView();
  return *this;
}

String& String::trim() {
  const std::size_t n = size();
  std::size_t begin = 0;
  std::size_t end = n;
  while (begin < end && at(begin) <= 0x20) ++begin;
  while (end > begin && at(end - 1) <= 0x20) --end;
  if (begin == 0 && end == n) return *this;
  if (shared()) {
    // The storage is another string's too: the trimmed text gets its own.
    *this = substring(static_cast<int>(begin), static_cast<int>(end) - 1);
    return *this;
  }
  // In place: trimming never needs new storage.
  if (m_Kind == kWide) {
    std::wmemmove(wide(), wide() + begin, end - begin);
  } else {
    std::memmove(bytes(), bytes() + begin, end - begin);
  }
  setSize(end - begin);
  dropView();
  return *this;
}

String& String::toLowerCase() {
  const std::size_t n = size();
  // Nothing is copied or changed for a text that is lower case already.
  std::size_t first = 0;
  while (first < n &&
         hostFoldCase(static_cast<wchar_t>(at(first))) == static_cast<wchar_t>(at(first)))
    ++first;
  if (first == n) return *this;
  unshare();
  if (m_Kind != kWide) {
    unsigned char* b = bytes();
    std::size_t i = first;
    for (; i < n; ++i) {
      const std::uint32_t folded = hostCodePoint(hostFoldCase(static_cast<wchar_t>(b[i])));
      if (folded > 0xFF) break;
      b[i] = static_cast<unsigned char>(folded);
    }
    dropView();
    if (i == n) return *this;
    // A folded character that a byte cannot hold: the rest goes wide.
    makeRoom(n, true);
    first = i;
  }
  wchar_t* w = wide();
  for (std::size_t i = first; i < n; ++i) w[i] = hostFoldCase(w[i]);
  dropView();
  return *this;
}

void StringAccess::reserve(String& s, std::size_t n) {
  s.makeRoom(std::max(n, s.size()), s.m_Kind == String::kWide);
}

void StringAccess::clear(String& s) { s.release(); }

String StringAccess::fromLatin1(const unsigned char* text, std::size_t count) {
  String s;
  if (count > 0) s.assignBytes(text, count);
  return s;
}
