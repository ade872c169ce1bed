#include "sdk/SdkString.h"

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <utility>

#include "base/Memory.h"
#include "base/StringExtras.h"
#include "base/WideText.h"
#include "base/WideTextExtras.h"
#include "sdk/SdkStringExtras.h"

namespace PluginSDK {

String::String(const wchar_t* text) : m_Data(text) {}

String::String(const char* text) : m_Data(text) {}

String& String::operator=(const wchar_t* text) {
  m_Data = ::String(text);
  return *this;
}

String& String::operator=(const char* text) {
  m_Data = ::String(text);
  return *this;
}

String& String::trim() {
  m_Data.trim();
  return *this;
}

std::wstring String::wstr() const { return toWideString(m_Data); }

String& String::append(const wchar_t* text) {
  m_Data.concat(text);
  return *this;
}

bool String::operator==(const String& other) const { return sameText(m_Data, other.m_Data); }

bool String::operator==(const wchar_t* other) const {
  // The text holds no zero character: it is made of zero-terminated pieces.
  return other != nullptr && m_Data.compareTo(other) == 0;
}

// ------------------------------------------------------------ StringVector

namespace {

// An item's header is one number, (length in bytes << 1) | wide, written in
// seven-bit groups, lowest first, the high bit of a byte saying another
// follows. An empty item is the single byte 0.
constexpr std::size_t kIndexStride = 64;
constexpr std::size_t kMaxHeader = 10;

std::size_t writeHeader(unsigned char* out, std::size_t value) {
  std::size_t n = 0;
  while (value >= 0x80) {
    out[n++] = static_cast<unsigned char>(value | 0x80);
    value >>= 7;
  }
  out[n++] = static_cast<unsigned char>(value);
  return n;
}

std::size_t readHeader(const unsigned char* in, std::size_t& position) {
  std::size_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    const unsigned char b = in[position++];
    value |= static_cast<std::size_t>(b & 0x7F) << shift;
    if ((b & 0x80) == 0) return value;
  }
}

struct Item {
  const unsigned char* data;
  std::size_t bytes;
  bool wide;
};

// The item that begins at position; position moves to the next one.
Item readItem(const unsigned char* block, std::size_t& position) {
  const std::size_t header = readHeader(block, position);
  Item item{block + position, header >> 1, (header & 1) != 0};
  position += item.bytes;
  return item;
}

std::wstring wideOf(const Item& item) {
  std::wstring text(item.bytes / sizeof(wchar_t), L'\0');
  if (item.bytes != 0) std::memcpy(&text[0], item.data, item.bytes);
  return text;
}

}  // namespace

StringVector::StringVector(const StringVector& other) : m_Index(other.m_Index) {
  if (other.m_Used == 0) {
    m_Count = other.m_Count;
    return;
  }
  m_Bytes = static_cast<unsigned char*>(zelm_malloc(other.m_Used));
  if (m_Bytes == nullptr) throw std::bad_alloc();
  std::memcpy(m_Bytes, other.m_Bytes, other.m_Used);
  m_Used = other.m_Used;
  m_Capacity = other.m_Used;
  m_Count = other.m_Count;
}

StringVector::StringVector(StringVector&& other) noexcept
    : m_Bytes(other.m_Bytes),
      m_Used(other.m_Used),
      m_Capacity(other.m_Capacity),
      m_Count(other.m_Count),
      m_Index(std::move(other.m_Index)) {
  other.m_Bytes = nullptr;
  other.m_Used = 0;
  other.m_Capacity = 0;
  other.m_Count = 0;
  other.m_Index.clear();
}

StringVector& StringVector::operator=(const StringVector& other) {
  if (this != &other) {
    StringVector copy(other);
    *this = std::move(copy);
  }
  return *this;
}

StringVector& StringVector::operator=(StringVector&& other) noexcept {
  if (this == &other) return *this;
  zelm_free(m_Bytes);
  m_Bytes = other.m_Bytes;
  m_Used = other.m_Used;
  m_Capacity = other.m_Capacity;
  m_Count = other.m_Count;
  m_Index = std::move(other.m_Index);
  other.m_Bytes = nullptr;
  other.m_Used = 0;
  other.m_Capacity = 0;
  other.m_Count = 0;
  other.m_Index.clear();
  return *this;
}

StringVector::~StringVector() { zelm_free(m_Bytes); }

void StringVector::addString(const wchar_t* text) {
  const std::size_t n = text != nullptr ? std::wcslen(text) : 0;
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < n; ++i) bits |= hostCodePoint(text[i]);
  const bool wide = bits > 0xFF;
  const std::size_t bytes = wide ? n * sizeof(wchar_t) : n;
  unsigned char header[kMaxHeader];
  const std::size_t headerBytes = writeHeader(header, (bytes << 1) | (wide ? 1U : 0U));

  // Room first, then the index: nothing changes until both are had.
  const std::size_t needed = m_Used + headerBytes + bytes;
  if (needed < m_Used) throw std::bad_alloc();
  if (needed > m_Capacity) {
    std::size_t grown = m_Capacity < 256 ? 256 : m_Capacity * 2;
    if (grown < needed || grown < m_Capacity) grown = needed;
    // Grown in place where the allocator can (a large block is remapped, not
    // copied), so that the list never holds its text twice.
    auto* block = static_cast<unsigned char*>(zelm_realloc(m_Bytes, grown));
    if (block == nullptr) throw std::bad_alloc();
    m_Bytes = block;
    m_Capacity = grown;
  }
  if (m_Count % kIndexStride == 0) m_Index.push_back(m_Used);

  std::memcpy(m_Bytes + m_Used, header, headerBytes);
  unsigned char* out = m_Bytes + m_Used + headerBytes;
  if (wide) {
    std::memcpy(out, text, bytes);
  } else {
    for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(text[i]);
  }
  m_Used = needed;
  ++m_Count;
}

std::size_t StringVector::offsetOf(std::size_t index) const {
  std::size_t position = m_Index[index / kIndexStride];
  for (std::size_t skip = index % kIndexStride; skip > 0; --skip) readItem(m_Bytes, position);
  return position;
}

String StringVector::get(std::size_t index) const {
  if (index >= m_Count) throw std::out_of_range("StringVector::get: index past the end");
  std::size_t position = offsetOf(index);
  const Item item = readItem(m_Bytes, position);
  String result;
  if (item.wide) {
    const std::wstring text = wideOf(item);
    result.m_Data = ::String(text.data(), text.size());
  } else {
    result.m_Data = latin1String(item.data, item.bytes);
  }
  return result;
}

}  // namespace PluginSDK

std::size_t SdkStringAccess::appendNarrowItem(const PluginSDK::StringVector& v,
                                              std::size_t position, std::string& out) {
  const PluginSDK::Item item = PluginSDK::readItem(v.m_Bytes, position);
  if (item.wide) {
    const std::wstring text = PluginSDK::wideOf(item);
    hostEncodeNarrowAppend(out, text.data(), text.size());
  } else if (hostIsAscii(reinterpret_cast<const char*>(item.data), item.bytes)) {
    out.append(reinterpret_cast<const char*>(item.data), item.bytes);
  } else {
    appendNarrow(latin1String(item.data, item.bytes), out);
  }
  return position;
}

void appendNarrow(const PluginSDK::String& s, std::string& out) {
  appendNarrow(SdkStringAccess::text(s), out);
}

std::string toNarrow(const PluginSDK::String& s) {
  std::string out;
  appendNarrow(s, out);
  return out;
}
