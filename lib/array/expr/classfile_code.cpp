// The code builder of ExprComp::Method: one function per instruction, each
// appending its bytes and moving the tracked operand-stack height (in slots:
// a double or long takes two) by its pops and pushes; the running maximum is
// the method's max_stack.
#include <cmath>
#include <string>

#include "classfile.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Opcodes used here.
enum : uint8_t {
  OP_iconst_m1 = 0x02, OP_iconst_0 = 0x03, OP_dconst_0 = 0x0e, OP_dconst_1 = 0x0f,
  OP_bipush = 0x10, OP_sipush = 0x11, OP_ldc = 0x12, OP_ldc_w = 0x13, OP_ldc2_w = 0x14,
  OP_iload = 0x15, OP_lload = 0x16, OP_dload = 0x18, OP_aload = 0x19,
  OP_iload_0 = 0x1a, OP_lload_0 = 0x1e, OP_dload_0 = 0x26, OP_aload_0 = 0x2a,
  OP_daload = 0x31, OP_aaload = 0x32,
  OP_istore = 0x36, OP_lstore = 0x37, OP_dstore = 0x39, OP_astore = 0x3a,
  OP_istore_0 = 0x3b, OP_lstore_0 = 0x3f, OP_dstore_0 = 0x47, OP_astore_0 = 0x4b,
  OP_dastore = 0x52,
  OP_pop = 0x57, OP_pop2 = 0x58, OP_dup = 0x59, OP_dup_x1 = 0x5a, OP_dup_x2 = 0x5b,
  OP_dup2 = 0x5c, OP_dup2_x1 = 0x5d, OP_dup2_x2 = 0x5e, OP_swap = 0x5f,
  OP_dadd = 0x63, OP_lsub = 0x65, OP_dsub = 0x67, OP_dmul = 0x6b, OP_ddiv = 0x6f,
  OP_drem = 0x73, OP_dneg = 0x77, OP_iinc = 0x84,
  OP_i2d = 0x87, OP_l2d = 0x8a, OP_d2i = 0x8e, OP_d2l = 0x8f,
  OP_dcmpl = 0x97, OP_dcmpg = 0x98,
  OP_ifeq = 0x99, OP_ifne = 0x9a, OP_iflt = 0x9b, OP_ifge = 0x9c, OP_ifgt = 0x9d, OP_ifle = 0x9e,
  OP_if_icmplt = 0xa1, OP_if_icmpge = 0xa2, OP_goto = 0xa7,
  OP_ireturn = 0xac, OP_dreturn = 0xaf, OP_return = 0xb1,
  OP_getstatic = 0xb2, OP_invokevirtual = 0xb6, OP_invokespecial = 0xb7,
  OP_invokestatic = 0xb8, OP_new = 0xbb, OP_newarray = 0xbc, OP_arraylength = 0xbe,
  OP_wide = 0xc4,
};

constexpr unsigned T_DOUBLE = 7;  // newarray's element-type code

// Slots of one value of a field descriptor at s[i]; i moves past it.
int valueSlots(std::string_view s, size_t& i) {
  QV_ASSERT(i < s.size(), exprcomp);
  char c = s[i++];
  if (c == 'D' || c == 'J') return 2;
  if (c == '[') {
    while (i < s.size() && s[i] == '[') ++i;
    valueSlots(s, i);
    return 1;
  }
  if (c == 'L') {
    size_t end = s.find(';', i);
    QV_ASSERT(end != std::string_view::npos, exprcomp);
    i = end + 1;
  }
  return 1;
}

// Argument and result slots of a method descriptor "(...)R".
void descriptorSlots(std::string_view d, int& args, int& result) {
  QV_ASSERT(!d.empty() && d[0] == '(', exprcomp);
  size_t i = 1;
  args = 0;
  while (i < d.size() && d[i] != ')') args += valueSlots(d, i);
  QV_ASSERT(i < d.size(), exprcomp);
  ++i;
  result = (i < d.size() && d[i] == 'V') ? 0 : valueSlots(d, i);
}

}  // namespace

ExprComp::Method::Method(ConstPool& pool, std::string_view name, std::string_view descriptor,
                         uint16_t access)
    : access_(access), name_(pool.addUtf8(name)), descriptor_(pool.addUtf8(descriptor)) {
  int args = 0, result = 0;
  descriptorSlots(descriptor, args, result);
  maxLocals_ = args + ((access & ACC_STATIC) ? 0 : 1);
}

void ExprComp::Method::op(uint8_t opcode, int pops, int pushes) {
  if (height_ < pops)
    QV_RAISE(exprcomp, QUBRIX_assertion_failure, "stackHeight=" + std::to_string(height_),
             "opcode=" + std::to_string(opcode));
  height_ += pushes - pops;
  if (height_ > maxStack_) maxStack_ = height_;
  u1(opcode);
}

void ExprComp::Method::touchLocal(int slot, int width) {
  QV_ASSERT(slot >= 0 && slot + width <= 65535, exprcomp);
  if (slot + width > maxLocals_) maxLocals_ = slot + width;
}

// xload_<n> / xstore_<n> for slots 0-3, the one-byte index up to 255, wide
// with a two-byte index beyond.
void ExprComp::Method::local(uint8_t shortBase, uint8_t longOp, int slot, int width, bool store) {
  touchLocal(slot, width);
  int pops = store ? width : 0, pushes = store ? 0 : width;
  if (slot <= 3) {
    op(static_cast<uint8_t>(shortBase + slot), pops, pushes);
  } else if (slot <= 255) {
    op(longOp, pops, pushes);
    u1(static_cast<unsigned>(slot));
  } else {
    u1(OP_wide);
    op(longOp, pops, pushes);
    u2(static_cast<unsigned>(slot));
  }
}

void ExprComp::Method::dload(int slot) { local(OP_dload_0, OP_dload, slot, 2, false); }
void ExprComp::Method::dstore(int slot) { local(OP_dstore_0, OP_dstore, slot, 2, true); }
void ExprComp::Method::lload(int slot) { local(OP_lload_0, OP_lload, slot, 2, false); }
void ExprComp::Method::lstore(int slot) { local(OP_lstore_0, OP_lstore, slot, 2, true); }
void ExprComp::Method::aload(int slot) { local(OP_aload_0, OP_aload, slot, 1, false); }
void ExprComp::Method::astore(int slot) { local(OP_astore_0, OP_astore, slot, 1, true); }
void ExprComp::Method::iload(int slot) { local(OP_iload_0, OP_iload, slot, 1, false); }
void ExprComp::Method::istore(int slot) { local(OP_istore_0, OP_istore, slot, 1, true); }

void ExprComp::Method::iinc(int slot, int delta) {
  touchLocal(slot, 1);
  if (slot <= 255 && delta >= -128 && delta <= 127) {
    op(OP_iinc, 0, 0);
    u1(static_cast<unsigned>(slot));
    u1(static_cast<unsigned>(delta) & 0xff);
  } else {
    QV_ASSERT(delta >= -32768 && delta <= 32767, exprcomp);
    u1(OP_wide);
    op(OP_iinc, 0, 0);
    u2(static_cast<unsigned>(slot));
    u2(static_cast<unsigned>(delta) & 0xffff);
  }
}

void ExprComp::Method::daload() { op(OP_daload, 2, 2); }
void ExprComp::Method::dastore() { op(OP_dastore, 4, 0); }
void ExprComp::Method::aaload() { op(OP_aaload, 2, 1); }
void ExprComp::Method::arraylength() { op(OP_arraylength, 1, 1); }
void ExprComp::Method::newarrayDouble() {
  op(OP_newarray, 1, 1);
  u1(T_DOUBLE);
}

void ExprComp::Method::iconst(int32_t v) {
  if (v >= -1 && v <= 5)
    op(static_cast<uint8_t>(OP_iconst_0 + v), 0, 1);
  else if (v >= -128 && v <= 127)
    bipush(v);
  else
    sipush(v);
}

void ExprComp::Method::iconst(ConstPool& pool, int32_t v) {
  if (v >= -32768 && v <= 32767)
    iconst(v);
  else
    ldc(pool.addInteger(v));
}

void ExprComp::Method::bipush(int v) {
  QV_ASSERT(v >= -128 && v <= 127, exprcomp);
  op(OP_bipush, 0, 1);
  u1(static_cast<unsigned>(v) & 0xff);
}

void ExprComp::Method::sipush(int v) {
  QV_ASSERT(v >= -32768 && v <= 32767, exprcomp);
  op(OP_sipush, 0, 1);
  u2(static_cast<unsigned>(v) & 0xffff);
}

void ExprComp::Method::dconst(ConstPool& pool, double v) {
  // +0.0 by its bits: -0.0 == 0.0 but is a constant of its own.
  if (v == 0.0 && !std::signbit(v))
    op(OP_dconst_0, 0, 2);
  else if (v == 1.0)
    op(OP_dconst_1, 0, 2);
  else
    ldc2_w(pool.addDouble(v));
}

void ExprComp::Method::ldc(int index) {
  QV_ASSERT(index > 0 && index < 65536, exprcomp);
  if (index <= 255) {
    op(OP_ldc, 0, 1);
    u1(static_cast<unsigned>(index));
  } else {
    op(OP_ldc_w, 0, 1);
    u2(static_cast<unsigned>(index));
  }
}

void ExprComp::Method::ldc2_w(int index) {
  QV_ASSERT(index > 0 && index < 65536, exprcomp);
  op(OP_ldc2_w, 0, 2);
  u2(static_cast<unsigned>(index));
}

void ExprComp::Method::dadd() { op(OP_dadd, 4, 2); }
void ExprComp::Method::dsub() { op(OP_dsub, 4, 2); }
void ExprComp::Method::dmul() { op(OP_dmul, 4, 2); }
void ExprComp::Method::ddiv() { op(OP_ddiv, 4, 2); }
void ExprComp::Method::drem() { op(OP_drem, 4, 2); }
void ExprComp::Method::dneg() { op(OP_dneg, 2, 2); }
void ExprComp::Method::lsub() { op(OP_lsub, 4, 2); }
void ExprComp::Method::dcmpl() { op(OP_dcmpl, 4, 1); }
void ExprComp::Method::dcmpg() { op(OP_dcmpg, 4, 1); }
void ExprComp::Method::d2i() { op(OP_d2i, 2, 1); }
void ExprComp::Method::d2l() { op(OP_d2l, 2, 2); }
void ExprComp::Method::l2d() { op(OP_l2d, 2, 2); }
void ExprComp::Method::i2d() { op(OP_i2d, 1, 2); }

// The duplicating forms as pops and pushes of the slots they touch.
void ExprComp::Method::dup() { op(OP_dup, 1, 2); }
void ExprComp::Method::dup_x1() { op(OP_dup_x1, 2, 3); }
void ExprComp::Method::dup_x2() { op(OP_dup_x2, 3, 4); }
void ExprComp::Method::dup2() { op(OP_dup2, 2, 4); }
void ExprComp::Method::dup2_x1() { op(OP_dup2_x1, 3, 5); }
void ExprComp::Method::dup2_x2() { op(OP_dup2_x2, 4, 6); }
void ExprComp::Method::pop() { op(OP_pop, 1, 0); }
void ExprComp::Method::pop2() { op(OP_pop2, 2, 0); }
void ExprComp::Method::swap() { op(OP_swap, 2, 2); }

ExprComp::Method::Label ExprComp::Method::newLabel() {
  labels_.emplace_back();
  return Label{static_cast<int>(labels_.size()) - 1};
}

// A branch's offset is relative to the branch instruction, a signed u2.
void ExprComp::Method::branch(uint8_t opcode, int pops, Label l, bool unconditional) {
  QV_ASSERT(l.id >= 0 && l.id < static_cast<int>(labels_.size()), exprcomp);
  int at = codeSize();
  op(opcode, pops, 0);
  LabelState& s = labels_[l.id];
  if (s.height < 0)
    s.height = height_;
  else if (s.height != height_)
    QV_RAISE(exprcomp, QUBRIX_assertion_failure, "stackHeight=" + std::to_string(height_));
  if (s.pos >= 0) {
    int offset = s.pos - at;
    QV_ASSERT(offset >= -32768, exprcomp);
    u2(static_cast<unsigned>(offset) & 0xffff);
  } else {
    s.patches.emplace_back(at, codeSize());
    u2(0);
  }
  if (unconditional) reachable_ = false;
}

void ExprComp::Method::bind(Label l) {
  QV_ASSERT(l.id >= 0 && l.id < static_cast<int>(labels_.size()), exprcomp);
  LabelState& s = labels_[l.id];
  QV_ASSERT(s.pos < 0, exprcomp);
  s.pos = codeSize();
  if (!reachable_ && s.height >= 0)
    height_ = s.height;
  else if (s.height >= 0 && s.height != height_)
    QV_RAISE(exprcomp, QUBRIX_assertion_failure, "stackHeight=" + std::to_string(height_));
  else
    s.height = height_;
  reachable_ = true;
  for (auto [insn, operand] : s.patches) {
    int offset = s.pos - insn;
    QV_ASSERT(offset <= 32767, exprcomp);
    code_[operand] = static_cast<unsigned char>(offset >> 8);
    code_[operand + 1] = static_cast<unsigned char>(offset);
  }
  s.patches.clear();
}

void ExprComp::Method::ifeq(Label l) { branch(OP_ifeq, 1, l, false); }
void ExprComp::Method::ifne(Label l) { branch(OP_ifne, 1, l, false); }
void ExprComp::Method::iflt(Label l) { branch(OP_iflt, 1, l, false); }
void ExprComp::Method::ifge(Label l) { branch(OP_ifge, 1, l, false); }
void ExprComp::Method::ifgt(Label l) { branch(OP_ifgt, 1, l, false); }
void ExprComp::Method::ifle(Label l) { branch(OP_ifle, 1, l, false); }
void ExprComp::Method::if_icmplt(Label l) { branch(OP_if_icmplt, 2, l, false); }
void ExprComp::Method::if_icmpge(Label l) { branch(OP_if_icmpge, 2, l, false); }
void ExprComp::Method::goto_(Label l) { branch(OP_goto, 0, l, true); }

void ExprComp::Method::ireturn() {
  op(OP_ireturn, 1, 0);
  reachable_ = false;
}
void ExprComp::Method::dreturn() {
  op(OP_dreturn, 2, 0);
  reachable_ = false;
}
void ExprComp::Method::return_() {
  op(OP_return, 0, 0);
  reachable_ = false;
}

void ExprComp::Method::invoke(uint8_t opcode, const ConstPool& pool, int ref, bool hasReceiver) {
  int args = 0, result = 0;
  descriptorSlots(pool.memberDescriptor(ref), args, result);
  op(opcode, args + (hasReceiver ? 1 : 0), result);
  u2(static_cast<unsigned>(ref));
}

void ExprComp::Method::invokestatic(const ConstPool& pool, int methodRef) {
  invoke(OP_invokestatic, pool, methodRef, false);
}
void ExprComp::Method::invokevirtual(const ConstPool& pool, int methodRef) {
  invoke(OP_invokevirtual, pool, methodRef, true);
}
void ExprComp::Method::invokespecial(const ConstPool& pool, int methodRef) {
  invoke(OP_invokespecial, pool, methodRef, true);
}

void ExprComp::Method::getstatic(const ConstPool& pool, int fieldRef) {
  const std::string& d = pool.memberDescriptor(fieldRef);
  size_t i = 0;
  op(OP_getstatic, 0, valueSlots(d, i));
  u2(static_cast<unsigned>(fieldRef));
}

void ExprComp::Method::new_(int classIndex) {
  op(OP_new, 0, 1);
  u2(static_cast<unsigned>(classIndex));
}

void ExprComp::Method::finish(int expectedHeight) {
  for (const LabelState& s : labels_) QV_ASSERT(s.patches.empty(), exprcomp);
  if (height_ != expectedHeight)
    QV_RAISE(exprcomp, QUBRIX_assertion_failure, "stackHeight=" + std::to_string(height_));
  // The JVM's limit on code_length.
  QV_ASSERT(codeSize() > 0 && codeSize() < 65536, exprcomp);
}

void ExprComp::Method::write(BytecodeStream& out, int codeName) const {
  out.u2(access_);
  out.u2(static_cast<unsigned>(name_));
  out.u2(static_cast<unsigned>(descriptor_));
  out.u2(1);  // one attribute: Code
  out.u2(static_cast<unsigned>(codeName));
  // max_stack, max_locals, code_length, code, no exception table, no
  // attributes.
  out.u4(static_cast<uint32_t>(2 + 2 + 4 + code_.size() + 2 + 2));
  out.u2(static_cast<unsigned>(maxStack_));
  out.u2(static_cast<unsigned>(maxLocals_));
  out.u4(static_cast<uint32_t>(code_.size()));
  out.bytes(code_);
  out.u2(0);
  out.u2(0);
}

}  // namespace qvarray
