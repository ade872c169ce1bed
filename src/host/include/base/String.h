#pragma once
// The host's wide string, a value type. Narrow text converts through one
// lossless routine (WideText.h): valid UTF-8 decodes to code points, and any
// other byte b is carried as U+DC00 + b and converts back to the same byte.
// Copies of one text may be used on different threads, as any value's may.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

class String {
 public:
  // The longest byte-held text kept inside the object.
  static const std::size_t kInlineCapacity = 22;

  String() noexcept : m_View(nullptr), m_Store{}, m_Size(0), m_Kind(kInline) {}
  String(const wchar_t* text);  // NOLINT: implicit by design; null is empty
  String(const wchar_t* text, std::size_t count);
  String(const char* text);  // NOLINT: narrow text, decoded; null is empty
  // The first count bytes of a narrow text, zero bytes included, decoded as
  // String(const char*) decodes; null is empty.
  String(const char* text, std::size_t count);
  String(const String& other);
  String(String&& other) noexcept;
  String& operator=(const String& other);
  String& operator=(String&& other) noexcept;
  ~String();

  int length() const { return static_cast<int>(size()); }

  // The character at index, or 0 when index is out of range.
  wchar_t charAt(int index) const;
  // First index of c at or after from, or -1.
  int indexOf(wchar_t c, int from = 0) const;
  // Characters from begin to the end; empty when begin is out of range.
  String substring(int begin) const;
  // Characters from begin through end, both included. Indexes are clamped to
  // the string; an empty range yields the empty string.
  String substring(int begin, int end) const;
  // Whether prefix occurs at offset, compared exactly.
  bool startsWith(const String& prefix, int offset = 0) const;
  // Negative, zero or positive as this string orders before, equal to or after
  // other. ignoreCase 0 compares code points exactly; any other value folds
  // case first (locale-independent, see i_wcsicmp).
  int compareTo(const String& other, int ignoreCase) const;
  int compareTo(const wchar_t* other) const;

  String& concat(const String& text);
  String& concat(const wchar_t* text);
  String& concat(const char* text);
  String& concat(wchar_t c);
  // Removes the character at index; out of range does nothing.
  String& deleteCharAt(int index);
  // Removes every character up to U+0020 at both ends.
  String& trim();
  // Folds to lower case without depending on the process locale.
  String& toLowerCase();

  // Narrow text (UTF-8, escaped bytes restored).
  std::string toNarrow() const;
  // The text as zero-terminated wide characters, valid until the string
  // changes or is destroyed. Safe to call on one string from several threads.
  const wchar_t* c_str() const;
  operator const wchar_t*() const { return c_str(); }  // NOLINT: host convention

 private:
  // The host's own code (the stand-in's extras) reaches the storage through this.
  friend struct StringAccess;

  enum Kind : std::uint8_t {
    kInline = 0,  // bytes in m_Store, count in m_Size
    kBytes = 1,   // bytes on the heap, one more allocated for a zero after them
    kWide = 2     // zero-terminated wchar_t on the heap
  };
  // The heap form's fields, kept in m_Store. data points just past the
  // storage's header (see String.cpp), which holds the count of sharers.
  struct Heap {
    void* data;
    std::uint32_t size;
    std::uint32_t capacity;
  };

  std::size_t size() const { return m_Kind == kInline ? m_Size : heap().size; }
  Heap heap() const {
    Heap h;
    std::memcpy(&h, m_Store, sizeof h);
    return h;
  }
  void setHeap(const Heap& h) { std::memcpy(m_Store, &h, sizeof h); }
  const unsigned char* bytes() const {
    return m_Kind == kInline ? m_Store : static_cast<const unsigned char*>(heap().data);
  }
  unsigned char* bytes() {
    return m_Kind == kInline ? m_Store : static_cast<unsigned char*>(heap().data);
  }
  const wchar_t* wide() const { return static_cast<const wchar_t*>(heap().data); }
  wchar_t* wide() { return static_cast<wchar_t*>(heap().data); }
  // The character at index as an unsigned code point; index below size().
  std::uint32_t at(std::size_t index) const {
    return m_Kind == kWide ? static_cast<std::uint32_t>(wide()[index]) : bytes()[index];
  }

  bool ownsMemory() const { return m_Kind != kInline || m_View != nullptr; }
  // Takes other's storage (its kind, size and view already copied) and
  // leaves other empty.
  void steal(String& other) noexcept {
    for (std::size_t i = 0; i < kInlineCapacity; ++i) m_Store[i] = other.m_Store[i];
    other.m_View = nullptr;
    other.m_Kind = kInline;
    other.m_Size = 0;
  }
  void release() noexcept;
  void dropView() noexcept;
  // Whether other strings share this string's heap storage.
  bool shared() const noexcept;
  // Makes the heap storage this string's own before it changes in place.
  void unshare();
  // Shares other's heap storage (or copies its inline text).
  void shareFrom(const String& other) noexcept;
  void assignBytes(const unsigned char* text, std::size_t count);
  void assignWide(const wchar_t* text, std::size_t count);
  void appendBytes(const unsigned char* text, std::size_t count);
  void appendWide(const wchar_t* text, std::size_t count);
  // Room for count characters; a byte-held text switches to wide first when
  // wide is set.
  void makeRoom(std::size_t count, bool wide);
  void setSize(std::size_t count);

  mutable wchar_t* m_View;
  alignas(8) unsigned char m_Store[kInlineCapacity];
  std::uint8_t m_Size;
  Kind m_Kind;
};

// Strings compare through compareTo. Without these, a == b would convert both
// to their character pointers and compare those.
bool operator==(const String&, const String&) = delete;
bool operator!=(const String&, const String&) = delete;
bool operator<(const String&, const String&) = delete;
bool operator>(const String&, const String&) = delete;
bool operator<=(const String&, const String&) = delete;
bool operator>=(const String&, const String&) = delete;
