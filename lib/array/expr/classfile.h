#pragma once
// The JVM class-file model of the expression compiler: byte sinks, the
// constant pool, fields, methods with a code builder, the table of library
// methods generated code calls, and the class file itself.
//
// The format is the JVM's class-file format at major version 46, which needs
// no StackMapTable: the verifier infers the frames itself. Everything is
// written big-endian.
//
//   ClassFile cf("Demo");                       // this = Demo, super = Object
//   ExprComp::Method m(cf.pool(), "work", "([D[D)I", ACC_PUBLIC | ACC_STATIC);
//   m.aload(0); m.iconst(0); m.daload();        // in[0]
//   m.dconst(cf.pool(), 2.0); m.dmul();
//   m.dstore(5);                                // register 0: slots 5, 6
//   m.aload(1); m.iconst(0); m.dload(5); m.dastore();
//   m.iconst(0); m.ireturn();
//   m.finish();                                 // stack height back to 0
//   cf.addMethod(std::move(m));
//   cf.write(stream);
//
// The code builder tracks the operand-stack height in slots (a double or a
// long takes two) after every instruction, and its maximum, which becomes
// max_stack; max_locals is the highest local slot touched (or the argument
// slots, whichever is more). codeSize() lets the caller split a program into
// continuation methods before it grows past ExprComp::MAX_METHOD_SIZE.
//
// Errors: the pool raises "Compilation failed: Too many different
// constants." when the next free index would reach 65536; FileBytecodeStream
// raises "Cannot_create_native_file"; a broken invariant of the builder
// (stack underflow, a wrong height at finish(), which carries "stackHeight="
// and the height, a branch out of range, an unbound label) raises
// "QUBRIX_assertion_failure". All from module exprcomp.
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "qvarray/expr/exprcomp.h"

namespace qvarray {

/// Access flags of classes, fields and methods.
enum : uint16_t {
  ACC_PUBLIC = 0x0001,
  ACC_PRIVATE = 0x0002,
  ACC_STATIC = 0x0008,
  ACC_FINAL = 0x0010,
  ACC_SUPER = 0x0020,
};

/// Abstract byte sink; the helpers write big-endian.
class QVARRAY_API ExprComp::BytecodeStream {
 public:
  virtual ~BytecodeStream();
  /// Appends n bytes.
  virtual void write(const unsigned char* data, size_t n) = 0;

  void u1(unsigned v);
  void u2(unsigned v);
  void u4(uint32_t v);
  void u8(uint64_t v);
  void bytes(const std::vector<unsigned char>& b) { write(b.data(), b.size()); }
};

/// Appends to a caller's vector.
class QVARRAY_API ExprComp::MemoryBytecodeStream : public BytecodeStream {
 public:
  explicit MemoryBytecodeStream(std::vector<unsigned char>& out) : out_(out) {}
  void write(const unsigned char* data, size_t n) override;

 private:
  std::vector<unsigned char>& out_;
};

/// Writes a file, created (or truncated) by name: "Cannot_create_native_file"
/// with ("Name", fileName) when it cannot be created, and the same when a
/// write or the final close() fails. The destructor closes without raising.
class QVARRAY_API ExprComp::FileBytecodeStream : public BytecodeStream {
 public:
  explicit FileBytecodeStream(const std::string& fileName);
  ~FileBytecodeStream() override;
  FileBytecodeStream(const FileBytecodeStream&) = delete;
  FileBytecodeStream& operator=(const FileBytecodeStream&) = delete;
  void write(const unsigned char* data, size_t n) override;
  /// Flushes and closes; raises when the data did not reach the file.
  void close();

 private:
  std::string name_;
  std::FILE* file_ = nullptr;
};

/// The constant pool: a map from entry (tag and payload) to index, bytes
/// appended only for a new entry. Every add returns the index of the entry,
/// the existing one when it is present already. Doubles are keyed by their
/// bit pattern (0.0 and -0.0 are two entries; NaNs by payload); a double or
/// a long takes two indices. Indices start at 1.
class QVARRAY_API ExprComp::ConstPool {
 public:
  ConstPool();

  int addUtf8(std::string_view s);
  int addInteger(int32_t v);
  int addLong(int64_t v);
  int addDouble(double v);
  /// A class by its internal name ("java/lang/Math").
  int addClass(std::string_view internalName);
  int addString(std::string_view s);
  int addNameAndType(std::string_view name, std::string_view descriptor);
  int addFieldref(std::string_view cls, std::string_view name, std::string_view descriptor);
  int addMethodref(std::string_view cls, std::string_view name, std::string_view descriptor);

  /// The descriptor of a Fieldref or Methodref entered here (the code
  /// builder derives stack effects from it).
  const std::string& memberDescriptor(int ref) const;
  /// The next free index (the constant_pool_count written to the class).
  int nextIndex() const { return next_; }
  /// Distinct entries (a double counts once).
  size_t entryCount() const { return index_.size(); }

  /// constant_pool_count and the entries.
  void write(BytecodeStream& out) const;

 private:
  int add(unsigned char tag, std::string key, const unsigned char* payload, size_t n, int slots);
  int addRef(unsigned char tag, std::string_view cls, std::string_view name,
             std::string_view descriptor);

  std::map<std::string, int> index_;  // tag byte + payload -> index
  std::map<int, std::string> memberDesc_;
  std::vector<unsigned char> bytes_;  // the entries as written
  int next_ = 1;
};

/// A field, optionally with a ConstantValue attribute.
class QVARRAY_API ExprComp::Field {
 public:
  Field(ConstPool& pool, std::string_view name, std::string_view descriptor, uint16_t access);
  /// A static final int field "I" holding `value` as its ConstantValue.
  static Field intConstant(ConstPool& pool, std::string_view name, int32_t value,
                           uint16_t access = ACC_PUBLIC | ACC_STATIC | ACC_FINAL);

  /// field_info; `constantValueName` is the pool index of "ConstantValue".
  void write(BytecodeStream& out, int constantValueName) const;
  bool hasConstantValue() const { return constant_ != 0; }

 private:
  uint16_t access_;
  int name_, descriptor_;
  int constant_ = 0;  // pool index of the value, 0 for none
};

/// A method with one Code attribute, and its code builder.
///
/// Local slots are given as slot numbers (a double register r of the
/// compiler lives at 2r + 5); loads and stores take the short form for slots
/// 0 to 3, the one-byte index up to 255 and `wide` beyond. Every instruction
/// updates the tracked stack height and its maximum; an instruction that
/// would pop below zero raises QUBRIX_assertion_failure.
class QVARRAY_API ExprComp::Method {
 public:
  /// A branch target. Branches to a label not yet bound are patched when it
  /// is bound; the height at a label is the height at its first branch.
  struct Label {
    int id = -1;
  };

  Method(ConstPool& pool, std::string_view name, std::string_view descriptor, uint16_t access);

  // Locals.
  void dload(int slot);
  void dstore(int slot);
  void lload(int slot);
  void lstore(int slot);
  void aload(int slot);
  void astore(int slot);
  void iload(int slot);
  void istore(int slot);
  void iinc(int slot, int delta);

  // Arrays.
  void daload();
  void dastore();
  void aaload();
  void arraylength();
  /// newarray of double: count -> double[].
  void newarrayDouble();

  // Constants.
  /// The shortest form: iconst_m1..iconst_5, bipush, sipush, else ldc of an
  /// Integer entry.
  void iconst(ConstPool& pool, int32_t v);
  /// iconst for -1..5 and the byte/short range (no pool needed).
  void iconst(int32_t v);
  void bipush(int v);
  void sipush(int v);
  /// dconst_0 / dconst_1 for +0.0 and 1.0, else ldc2_w of a Double entry.
  void dconst(ConstPool& pool, double v);
  /// ldc or ldc_w of a one-slot entry (Integer, String), by pool index.
  void ldc(int index);
  /// ldc2_w of a two-slot entry (Double, Long): pushes two slots.
  void ldc2_w(int index);

  // Arithmetic and conversions.
  void dadd();
  void dsub();
  void dmul();
  void ddiv();
  void drem();
  void dneg();
  void lsub();
  void dcmpl();
  void dcmpg();
  void d2i();
  void d2l();
  void l2d();
  void i2d();

  // Stack manipulation.
  void dup();
  void dup_x1();
  void dup_x2();
  void dup2();
  void dup2_x1();
  void dup2_x2();
  void pop();
  void pop2();
  void swap();

  // Control flow.
  Label newLabel();
  /// Binds `l` here. When the code before is unreachable (after a goto or a
  /// return) the height becomes the label's; else the two must agree.
  void bind(Label l);
  void ifeq(Label l);
  void ifne(Label l);
  void iflt(Label l);
  void ifge(Label l);
  void ifgt(Label l);
  void ifle(Label l);
  void if_icmplt(Label l);
  void if_icmpge(Label l);
  void goto_(Label l);
  void ireturn();
  void dreturn();
  void return_();

  // Members; the stack effect comes from the entry's descriptor.
  void invokestatic(const ConstPool& pool, int methodRef);
  void invokevirtual(const ConstPool& pool, int methodRef);
  void invokespecial(const ConstPool& pool, int methodRef);
  void getstatic(const ConstPool& pool, int fieldRef);
  /// new of a class (pool index of its Class entry).
  void new_(int classIndex);

  /// Checks that every label used is bound and that the height is back at
  /// `expectedHeight` (QUBRIX_assertion_failure with "stackHeight=" and the
  /// height otherwise). Call once, after the last instruction.
  void finish(int expectedHeight = 0);

  int codeSize() const { return static_cast<int>(code_.size()); }
  int stackHeight() const { return height_; }
  int maxStack() const { return maxStack_; }
  int maxLocals() const { return maxLocals_; }
  const std::vector<unsigned char>& code() const { return code_; }

  /// method_info with its Code attribute; `codeName` is the pool index of
  /// "Code".
  void write(BytecodeStream& out, int codeName) const;

 private:
  void op(uint8_t opcode, int pops, int pushes);
  void local(uint8_t shortBase, uint8_t longOp, int slot, int width, bool store);
  void branch(uint8_t opcode, int pops, Label l, bool unconditional);
  void invoke(uint8_t opcode, const ConstPool& pool, int ref, bool hasReceiver);
  void touchLocal(int slot, int width);
  void u1(unsigned v) { code_.push_back(static_cast<unsigned char>(v)); }
  void u2(unsigned v) {
    u1(v >> 8);
    u1(v & 0xff);
  }

  struct LabelState {
    int pos = -1;     // bound offset, -1 when not yet bound
    int height = -1;  // height at the first branch, -1 when none yet
    std::vector<std::pair<int, int>> patches;  // (instruction offset, operand offset)
  };

  uint16_t access_;
  int name_, descriptor_;
  std::vector<unsigned char> code_;
  std::vector<LabelState> labels_;
  int height_ = 0, maxStack_ = 0, maxLocals_ = 0;
  bool reachable_ = true;
};

/// The library methods generated code calls, entered into the pool on first
/// use. Math methods (abs among them) are java/lang/Math's ("(D)D", atan2
/// and pow "(DD)D", round "(D)J"); IsNaN is java/lang/Double.isNaN "(D)Z";
/// ModImpl is the class's own static "modImpl" "(DD)D", the floating modulus
/// a - b*floor(a/b) computed as qvmath::mod does (sign of b, mod(a, 0) = a),
/// whose body ClassFile::write adds when it was used.
class QVARRAY_API ExprComp::FunctionTable {
 public:
  enum Fun {
    Acos, Asin, Atan, Atan2, Ceil, Floor, Sqrt, Round,
    Exp, Log, Log10, Sin, Cos, Tan, Sinh, Cosh, Tanh, Pow,
    IsNaN, ModImpl, Abs, FunCount
  };

  FunctionTable(ConstPool& pool, std::string className);
  /// The Methodref index of `f` (entered on first use).
  int methodRef(Fun f);
  bool used(Fun f) const { return refs_[f] != 0; }

  /// The "modImpl" method: if (b == 0) return a; r = a % b (drem, C's fmod);
  /// if (r != 0 && (r < 0) != (b < 0)) r += b; return r.
  static Method modImplMethod(ConstPool& pool);

 private:
  ConstPool& pool_;
  std::string className_;
  int refs_[FunCount] = {};
};

/// A class: constant pool, fields, methods, and the write in class-file
/// order (magic, version 0.46, pool, ACC_PUBLIC | ACC_SUPER, this, super
/// java/lang/Object, no interfaces, fields, methods, attribute SourceFile =
/// "Byte code generated by QUBRIX.").
class QVARRAY_API ExprComp::ClassFile {
 public:
  explicit ClassFile(std::string className);
  ClassFile(const ClassFile&) = delete;
  ClassFile& operator=(const ClassFile&) = delete;

  const std::string& className() const { return name_; }
  ConstPool& pool() { return pool_; }
  FunctionTable& functions() { return functions_; }
  /// The pool index of this class's Class entry.
  int thisClass() const { return this_; }

  void addField(Field f) { fields_.push_back(std::move(f)); }
  void addMethod(Method m) { methods_.push_back(std::move(m)); }
  /// The public "<init>" "()V" that calls Object's.
  void addDefaultConstructor();
  /// A Methodref to a static method of this class.
  int selfMethodRef(std::string_view name, std::string_view descriptor);

  /// Adds modImpl when it was used, enters the attribute names and the
  /// SourceFile strings, then writes the class. Call once.
  void write(BytecodeStream& out);

 private:
  std::string name_;
  ConstPool pool_;
  FunctionTable functions_;
  int this_ = 0, super_ = 0;
  std::vector<Field> fields_;
  std::vector<Method> methods_;
};

}  // namespace qvarray
