// The class-file model: byte sinks, the constant pool, fields, the function
// table and the class file's write (the code builder is classfile_code.cpp).
#include "classfile.h"

#include <bit>
#include <cstring>

#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Constant-pool tags.
enum : unsigned char {
  TagUtf8 = 1, TagInteger = 3, TagLong = 5, TagDouble = 6, TagClass = 7, TagString = 8,
  TagFieldref = 9, TagMethodref = 10, TagNameAndType = 12
};

void putU2(unsigned char* p, unsigned v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

void putU8(unsigned char* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (56 - 8 * i));
}

// The class file's Utf8 form: modified UTF-8, where NUL is the two bytes
// C0 80; other bytes pass through (names and descriptors are ASCII).
std::string modifiedUtf8(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (char c : s) {
    if (c == '\0')
      out += "\xC0\x80";
    else
      out += c;
  }
  return out;
}

}  // namespace

// ---- Byte sinks ----

ExprComp::BytecodeStream::~BytecodeStream() = default;

void ExprComp::BytecodeStream::u1(unsigned v) {
  unsigned char b = static_cast<unsigned char>(v);
  write(&b, 1);
}

void ExprComp::BytecodeStream::u2(unsigned v) {
  unsigned char b[2];
  putU2(b, v);
  write(b, 2);
}

void ExprComp::BytecodeStream::u4(uint32_t v) {
  unsigned char b[4] = {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
                        static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
  write(b, 4);
}

void ExprComp::BytecodeStream::u8(uint64_t v) {
  unsigned char b[8];
  putU8(b, v);
  write(b, 8);
}

void ExprComp::MemoryBytecodeStream::write(const unsigned char* data, size_t n) {
  out_.insert(out_.end(), data, data + n);
}

ExprComp::FileBytecodeStream::FileBytecodeStream(const std::string& fileName) : name_(fileName) {
  file_ = std::fopen(fileName.c_str(), "wb");
  QV_CHECK(file_ != nullptr, exprcomp, Cannot_create_native_file,
           qvbase::DetailPairs{{"Name", fileName}});
}

ExprComp::FileBytecodeStream::~FileBytecodeStream() {
  if (file_) std::fclose(file_);
}

void ExprComp::FileBytecodeStream::write(const unsigned char* data, size_t n) {
  QV_ASSERT(file_ != nullptr, exprcomp);
  QV_CHECK(std::fwrite(data, 1, n, file_) == n, exprcomp, Cannot_create_native_file,
           qvbase::DetailPairs{{"Name", name_}});
}

void ExprComp::FileBytecodeStream::close() {
  if (!file_) return;
  std::FILE* f = file_;
  file_ = nullptr;
  QV_CHECK(std::fclose(f) == 0, exprcomp, Cannot_create_native_file,
           qvbase::DetailPairs{{"Name", name_}});
}

// ---- Constant pool ----

ExprComp::ConstPool::ConstPool() = default;

int ExprComp::ConstPool::add(unsigned char tag, std::string key, const unsigned char* payload,
                             size_t n, int slots) {
  key.insert(key.begin(), static_cast<char>(tag));
  auto [it, fresh] = index_.try_emplace(std::move(key), next_);
  if (!fresh) return it->second;
  // constant_pool_count is a u2: the last usable index is 65534.
  if (next_ + slots >= 65536) {
    index_.erase(it);
    QV_RAISE_TEXT(exprcomp, Too_many_constants, "");
  }
  bytes_.push_back(tag);
  bytes_.insert(bytes_.end(), payload, payload + n);
  next_ += slots;
  return it->second;
}

int ExprComp::ConstPool::addUtf8(std::string_view s) {
  std::string m = modifiedUtf8(s);
  QV_ASSERT(m.size() <= 65535, exprcomp);
  std::vector<unsigned char> payload(2 + m.size());
  putU2(payload.data(), static_cast<unsigned>(m.size()));
  std::memcpy(payload.data() + 2, m.data(), m.size());
  return add(TagUtf8, m, payload.data(), payload.size(), 1);
}

int ExprComp::ConstPool::addInteger(int32_t v) {
  unsigned char p[4];
  uint32_t u = static_cast<uint32_t>(v);
  putU2(p, u >> 16);
  putU2(p + 2, u & 0xffff);
  return add(TagInteger, std::string(reinterpret_cast<char*>(p), 4), p, 4, 1);
}

int ExprComp::ConstPool::addLong(int64_t v) {
  unsigned char p[8];
  putU8(p, static_cast<uint64_t>(v));
  return add(TagLong, std::string(reinterpret_cast<char*>(p), 8), p, 8, 2);
}

int ExprComp::ConstPool::addDouble(double v) {
  unsigned char p[8];
  putU8(p, std::bit_cast<uint64_t>(v));
  return add(TagDouble, std::string(reinterpret_cast<char*>(p), 8), p, 8, 2);
}

int ExprComp::ConstPool::addClass(std::string_view internalName) {
  unsigned char p[2];
  putU2(p, addUtf8(internalName));
  return add(TagClass, std::string(reinterpret_cast<char*>(p), 2), p, 2, 1);
}

int ExprComp::ConstPool::addString(std::string_view s) {
  unsigned char p[2];
  putU2(p, addUtf8(s));
  return add(TagString, std::string(reinterpret_cast<char*>(p), 2), p, 2, 1);
}

int ExprComp::ConstPool::addNameAndType(std::string_view name, std::string_view descriptor) {
  unsigned char p[4];
  putU2(p, addUtf8(name));
  putU2(p + 2, addUtf8(descriptor));
  return add(TagNameAndType, std::string(reinterpret_cast<char*>(p), 4), p, 4, 1);
}

int ExprComp::ConstPool::addRef(unsigned char tag, std::string_view cls, std::string_view name,
                                std::string_view descriptor) {
  unsigned char p[4];
  putU2(p, addClass(cls));
  putU2(p + 2, addNameAndType(name, descriptor));
  int index = add(tag, std::string(reinterpret_cast<char*>(p), 4), p, 4, 1);
  memberDesc_.try_emplace(index, descriptor);
  return index;
}

int ExprComp::ConstPool::addFieldref(std::string_view cls, std::string_view name,
                                     std::string_view descriptor) {
  return addRef(TagFieldref, cls, name, descriptor);
}

int ExprComp::ConstPool::addMethodref(std::string_view cls, std::string_view name,
                                      std::string_view descriptor) {
  return addRef(TagMethodref, cls, name, descriptor);
}

const std::string& ExprComp::ConstPool::memberDescriptor(int ref) const {
  auto it = memberDesc_.find(ref);
  QV_ASSERT(it != memberDesc_.end(), exprcomp);
  return it->second;
}

void ExprComp::ConstPool::write(BytecodeStream& out) const {
  out.u2(static_cast<unsigned>(next_));
  out.bytes(bytes_);
}

// ---- Fields ----

ExprComp::Field::Field(ConstPool& pool, std::string_view name, std::string_view descriptor,
                       uint16_t access)
    : access_(access), name_(pool.addUtf8(name)), descriptor_(pool.addUtf8(descriptor)) {}

ExprComp::Field ExprComp::Field::intConstant(ConstPool& pool, std::string_view name,
                                             int32_t value, uint16_t access) {
  Field f(pool, name, "I", access);
  f.constant_ = pool.addInteger(value);
  return f;
}

void ExprComp::Field::write(BytecodeStream& out, int constantValueName) const {
  out.u2(access_);
  out.u2(static_cast<unsigned>(name_));
  out.u2(static_cast<unsigned>(descriptor_));
  if (!constant_) {
    out.u2(0);
    return;
  }
  out.u2(1);  // one attribute: ConstantValue, a u2 index
  out.u2(static_cast<unsigned>(constantValueName));
  out.u4(2);
  out.u2(static_cast<unsigned>(constant_));
}

// ---- Function table ----

namespace {

struct LibraryMethod {
  const char* cls;  // nullptr: the class being written
  const char* name;
  const char* descriptor;
};

constexpr LibraryMethod kLibrary[ExprComp::FunctionTable::FunCount] = {
    {"java/lang/Math", "acos", "(D)D"},  {"java/lang/Math", "asin", "(D)D"},
    {"java/lang/Math", "atan", "(D)D"},  {"java/lang/Math", "atan2", "(DD)D"},
    {"java/lang/Math", "ceil", "(D)D"},  {"java/lang/Math", "floor", "(D)D"},
    {"java/lang/Math", "sqrt", "(D)D"},  {"java/lang/Math", "round", "(D)J"},
    {"java/lang/Math", "exp", "(D)D"},   {"java/lang/Math", "log", "(D)D"},
    {"java/lang/Math", "log10", "(D)D"}, {"java/lang/Math", "sin", "(D)D"},
    {"java/lang/Math", "cos", "(D)D"},   {"java/lang/Math", "tan", "(D)D"},
    {"java/lang/Math", "sinh", "(D)D"},  {"java/lang/Math", "cosh", "(D)D"},
    {"java/lang/Math", "tanh", "(D)D"},  {"java/lang/Math", "pow", "(DD)D"},
    {"java/lang/Double", "isNaN", "(D)Z"}, {nullptr, "modImpl", "(DD)D"},
    {"java/lang/Math", "abs", "(D)D"},
};

}  // namespace

ExprComp::FunctionTable::FunctionTable(ConstPool& pool, std::string className)
    : pool_(pool), className_(std::move(className)) {}

int ExprComp::FunctionTable::methodRef(Fun f) {
  QV_ASSERT(f >= 0 && f < FunCount, exprcomp);
  if (!refs_[f]) {
    const LibraryMethod& m = kLibrary[f];
    refs_[f] = pool_.addMethodref(m.cls ? std::string_view(m.cls) : className_, m.name,
                                  m.descriptor);
  }
  return refs_[f];
}

// modImpl(a, b), the same steps as qvmath::mod; a in slots 0-1, b in 2-3, r
// in 4-5. The comparisons choose dcmpl/dcmpg so that a NaN falls through as
// it does in C++ (every comparison with NaN false): NaN in, NaN out.
ExprComp::Method ExprComp::FunctionTable::modImplMethod(ConstPool& pool) {
  Method m(pool, "modImpl", "(DD)D", ACC_PUBLIC | ACC_STATIC);
  Method::Label notZero = m.newLabel(), done = m.newLabel(), add = m.newLabel();
  // if (b == 0.0) return a;   b NaN: dcmpl gives -1, not equal
  m.dload(2);
  m.dconst(pool, 0.0);
  m.dcmpl();
  m.ifne(notZero);
  m.dload(0);
  m.dreturn();
  m.bind(notZero);
  // r = a % b;   the JVM's drem truncates like fmod
  m.dload(0);
  m.dload(2);
  m.drem();
  m.dstore(4);
  // if (r != 0.0 && (r < 0.0) != (b < 0.0)) r += b;
  m.dload(4);
  m.dconst(pool, 0.0);
  m.dcmpl();
  m.ifeq(done);  // r == 0 (NaN gives -1 and goes on)
  // (r < 0) as 0/1 compared with (b < 0) as 0/1: dcmpg makes NaN "not less".
  m.dload(4);
  m.dconst(pool, 0.0);
  m.dcmpg();
  m.iflt(add);  // r < 0: add when b >= 0
  // r > 0 (or NaN): add when b < 0
  m.dload(2);
  m.dconst(pool, 0.0);
  m.dcmpg();
  m.ifge(done);
  Method::Label doAdd = m.newLabel();
  m.goto_(doAdd);
  m.bind(add);
  m.dload(2);
  m.dconst(pool, 0.0);
  m.dcmpg();
  m.iflt(done);
  m.bind(doAdd);
  m.dload(4);
  m.dload(2);
  m.dadd();
  m.dstore(4);
  m.bind(done);
  m.dload(4);
  m.dreturn();
  m.finish();
  return m;
}

// ---- Class file ----

ExprComp::ClassFile::ClassFile(std::string className)
    : name_(std::move(className)), functions_(pool_, name_) {
  this_ = pool_.addClass(name_);
  super_ = pool_.addClass("java/lang/Object");
}

void ExprComp::ClassFile::addDefaultConstructor() {
  Method m(pool_, "<init>", "()V", ACC_PUBLIC);
  m.aload(0);
  m.invokespecial(pool_, pool_.addMethodref("java/lang/Object", "<init>", "()V"));
  m.return_();
  m.finish();
  methods_.push_back(std::move(m));
}

int ExprComp::ClassFile::selfMethodRef(std::string_view name, std::string_view descriptor) {
  return pool_.addMethodref(name_, name, descriptor);
}

void ExprComp::ClassFile::write(BytecodeStream& out) {
  if (functions_.used(FunctionTable::ModImpl)) methods_.push_back(FunctionTable::modImplMethod(pool_));
  // Every pool entry is made before the pool is written.
  int codeName = pool_.addUtf8("Code");
  int constantValueName = 0;
  for (const Field& f : fields_)
    if (f.hasConstantValue()) constantValueName = pool_.addUtf8("ConstantValue");
  int sourceFileName = pool_.addUtf8("SourceFile");
  int banner = pool_.addUtf8("Byte code generated by QUBRIX.");

  out.u4(0xCAFEBABE);
  out.u2(0);   // minor version
  out.u2(46);  // major version: no StackMapTable needed
  pool_.write(out);
  out.u2(ACC_PUBLIC | ACC_SUPER);
  out.u2(static_cast<unsigned>(this_));
  out.u2(static_cast<unsigned>(super_));
  out.u2(0);  // interfaces
  QV_ASSERT(fields_.size() <= 65535 && methods_.size() <= 65535, exprcomp);
  out.u2(static_cast<unsigned>(fields_.size()));
  for (const Field& f : fields_) f.write(out, constantValueName);
  out.u2(static_cast<unsigned>(methods_.size()));
  for (const Method& m : methods_) m.write(out, codeName);
  out.u2(1);  // attributes: SourceFile
  out.u2(static_cast<unsigned>(sourceFileName));
  out.u4(2);
  out.u2(static_cast<unsigned>(banner));
}

}  // namespace qvarray
