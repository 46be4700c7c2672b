// Class emission: the evaluation program as JVM bytecode (createWork), the
// optional main method (createMain), the class around them, and the public
// compile operations.
//
// Work method "([D[D)I": argument 0 the inputs, 1 the outputs; register r in
// local slots 2r + 5 (the builder takes the wide forms past slot 255); slot 2
// holds the array that carries live registers into a continuation; two
// scratch doubles follow the registers. Each step pushes its operands in
// order (a Stack operand is already there), applies the operation and stores
// the value in its register or leaves it on the stack for the next step. A
// domain failure returns its status code at once.
//
// NaN: comparisons use dcmpl where NaN must count as "less" (>=, >, the
// not-equal-zero tests) and dcmpg where it must count as "greater" (<=, <, the
// below-zero tests), so every comparison and domain test gives what eval
// gives. min and max compare through the scratch slots as (b >= a) ? a : b.
// round is Math.round (to long, back to double), which differs from eval's
// floor(x + 0.5) deliberately: at NaN (0), at 0.49999999999999994 (0), at odd
// values between 2^52 and 2^53 and beyond 2^63 (saturated).
//
// Splitting: before a step, when the code so far plus the largest step and
// the hand-over could pass MAX_METHOD_SIZE, the live registers are stored
// into the carry array (carry[r] = register r; a value left on the stack for
// the step goes to carry[registers] and back onto the stack) and the rest of the program goes into the continuation "<name>_<k>" of
// descriptor "([D[D[D)I", which loads them back. The caller returns a
// non-zero status of the continuation at once (dup, ifeq, ireturn).
#include <algorithm>
#include <cmath>

#include "classfile.h"
#include "exprcomp_impl.h"
#include "qvutil/errors.h"
#include "qvutil/stopwatch.h"

namespace qvarray {

namespace {

using Method = ExprComp::Method;
using Fun = ExprComp::FunctionTable::Fun;

// Upper bounds in bytes: one step (three operand loads and the longest
// operation sequence, pow with its NaN tests), and the call of a continuation.
constexpr int kMaxStepBytes = 160;
constexpr int kCallBytes = 32;
// Bytes to store or load one carried register.
constexpr int kCarryBytes = 11;

class WorkEmitter {
 public:
  WorkEmitter(ExprComp::ClassFile& cf, const EvalProgram& p) : cf_(cf), pool_(cf.pool()), p_(p) {
    scratch1_ = 2 * p.registers + 5;
    scratch2_ = scratch1_ + 2;
    // Two local slots per register: the JVM's 65535 slots end it at about 32 760.
    if (scratch2_ + 1 > 65535) QV_RAISE_TEXT(exprcomp, Too_many_live_values, "");
    lastRead_.assign(p.steps.size(), -1);
    std::vector<int> writer(static_cast<size_t>(p.registers), -1);  // register -> step
    auto read = [&](const ProgramOperand& a, int at) {
      if (a.source == OperandSource::Register)
        lastRead_[static_cast<size_t>(writer[static_cast<size_t>(a.index)])] = at;
    };
    for (size_t i = 0; i < p.steps.size(); ++i) {
      for (const ProgramOperand& a : p.steps[i].args) read(a, static_cast<int>(i));
      if (p.steps[i].dest >= 0) writer[static_cast<size_t>(p.steps[i].dest)] = static_cast<int>(i);
    }
    for (size_t k = 0; k < p.outputs.size(); ++k)  // output k is item steps + k
      read(p.outputs[k], static_cast<int>(p.steps.size() + k));
  }

  // Emits the work method and its continuations into the class.
  void emit(const std::string& name) {
    const size_t items = p_.steps.size() + p_.outputs.size();
    size_t at = 0;
    bool carriedStack = false;  // the value left on the stack, from carry[registers]
    writtenIn_.assign(static_cast<size_t>(p_.registers), -1);
    writer_.assign(static_cast<size_t>(p_.registers), -1);
    for (method_ = 0;; ++method_) {
      const bool first = method_ == 0;
      Method m(pool_, first ? name : name + "_" + std::to_string(method_),
               first ? "([D[D)I" : "([D[D[D)I", 0x0001 | 0x0008);
      if (carriedStack) {
        m.aload(2);
        m.iconst(pool_, p_.registers);
        m.daload();
      }
      std::vector<int> written;  // registers written in this method
      bool split = false;
      for (; at < items; ++at) {
        const int need = kMaxStepBytes + kCallBytes + kCarryBytes * static_cast<int>(written.size() + 1);
        if (m.codeSize() + need > ExprComp::MAX_METHOD_SIZE && at > 0) {
          carriedStack = at < p_.steps.size() && !p_.steps[at].args.empty() &&
                         p_.steps[at].args[0].source == OperandSource::Stack;
          std::vector<int> live;
          for (int r : written)
            if (lastRead_[static_cast<size_t>(writer_[static_cast<size_t>(r)])] >= static_cast<int>(at))
              live.push_back(r);
          callContinuation(m, name + "_" + std::to_string(method_ + 1), live, first, carriedStack);
          split = true;
          break;
        }
        if (at < p_.steps.size()) {
          const ProgramStep& st = p_.steps[at];
          step(m, st);
          if (st.dest >= 0) {
            auto r = static_cast<size_t>(st.dest);
            if (writtenIn_[r] != method_) written.push_back(st.dest);
            writtenIn_[r] = method_;
            writer_[r] = static_cast<int>(at);
          }
        } else {
          output(m, static_cast<int>(at - p_.steps.size()));
        }
      }
      if (!split) {
        m.iconst(0);
        m.ireturn();
      }
      m.finish(0);
      QV_ASSERT(m.codeSize() <= ExprComp::MAX_METHOD_SIZE, exprcomp);
      cf_.addMethod(std::move(m));
      if (!split) break;
    }
  }

 private:
  static int slot(int reg) { return 2 * reg + 5; }

  void callContinuation(Method& m, const std::string& next, const std::vector<int>& live, bool first,
                        bool stackValue) {
    if (stackValue) m.dstore(scratch1_);
    if (first) {
      m.iconst(pool_, p_.registers + 1);
      m.newarrayDouble();
      m.astore(2);
    }
    if (stackValue) {
      m.aload(2);
      m.iconst(pool_, p_.registers);
      m.dload(scratch1_);
      m.dastore();
    }
    for (int r : live) {
      m.aload(2);
      m.iconst(pool_, r);
      m.dload(slot(r));
      m.dastore();
    }
    m.aload(0);
    m.aload(1);
    m.aload(2);
    m.invokestatic(pool_, cf_.selfMethodRef(next, "([D[D[D)I"));
    Method::Label ok = m.newLabel();
    m.dup();
    m.ifeq(ok);
    m.ireturn();
    m.bind(ok);
    m.pop();
    m.iconst(0);
    m.ireturn();
  }

  void push(Method& m, const ProgramOperand& a) {
    switch (a.source) {
      case OperandSource::Stack: break;
      case OperandSource::Register:
        if (writtenIn_[static_cast<size_t>(a.index)] == method_) {
          m.dload(slot(a.index));
        } else {  // written in an earlier method: read where the split left it
          m.aload(2);
          m.iconst(pool_, a.index);
          m.daload();
        }
        break;
      case OperandSource::Input:
        m.aload(0);
        m.iconst(pool_, a.index);
        m.daload();
        break;
      case OperandSource::Constant: m.dconst(pool_, p_.constants[static_cast<size_t>(a.index)]); break;
    }
  }

  void output(Method& m, int k) {
    m.aload(1);
    m.iconst(pool_, k);
    push(m, p_.outputs[static_cast<size_t>(k)]);
    m.dastore();
  }

  void call(Method& m, Fun f) { m.invokestatic(pool_, cf_.functions().methodRef(f)); }

  // Returns `status` when the int on the stack satisfies the branch `skip`
  // does not take: the branch jumps over the return.
  template <class Branch>
  void failUnless(Method& m, Branch skip, int status) {
    Method::Label ok = m.newLabel();
    (m.*skip)(ok);
    m.iconst(status);
    m.ireturn();
    m.bind(ok);
  }

  // A 0/1 double from the int on the stack: 1 unless `zeroIf` branches.
  template <class Branch>
  void truth(Method& m, Branch zeroIf) {
    Method::Label zero = m.newLabel(), end = m.newLabel();
    (m.*zeroIf)(zero);
    m.dconst(pool_, 1.0);
    m.goto_(end);
    m.bind(zero);
    m.dconst(pool_, 0.0);
    m.bind(end);
  }

  // 1/f(x): f(x) on the stack, then 1 below it.
  void reciprocal(Method& m) {
    m.dconst(pool_, 1.0);
    m.dup2_x2();
    m.pop2();
    m.ddiv();
  }

  // x y -> (condition on x, y) ? x : y, through the scratch slots; the
  // comparison pushes `first` then `second` (1 = x, 2 = y).
  void select(Method& m, int first, int second) {
    m.dstore(scratch2_);
    m.dstore(scratch1_);
    m.dload(first == 1 ? scratch1_ : scratch2_);
    m.dload(second == 1 ? scratch1_ : scratch2_);
    m.dcmpl();  // NaN: -1, the second operand y
    Method::Label takeY = m.newLabel(), end = m.newLabel();
    m.iflt(takeY);
    m.dload(scratch1_);
    m.goto_(end);
    m.bind(takeY);
    m.dload(scratch2_);
    m.bind(end);
  }

  void step(Method& m, const ProgramStep& s) {
    using C = ExprComp;
    for (const ProgramOperand& a : s.args) push(m, a);
    const size_t n = s.args.size();
    auto arity = [&](size_t k) {
      QV_CHECK(n == k, exprcomp, Internal_error_symbolic_processing, "Operation", std::int64_t{s.op});
    };
    switch (s.op) {
      // Math.abs clears the sign bit as fabs does (abs(-0) = +0; a NaN keeps
      // its payload: HotSpot does so, Java specifies it from 18 on), without
      // a branch.
      case C::OpAbs: arity(1); call(m, Fun::Abs); break;
      case C::OpAcos:
      case C::OpAsin: {
        arity(1);
        Method::Label fail = m.newLabel(), ok = m.newLabel();
        m.dup2();
        m.dconst(pool_, 1.0);
        m.dcmpl();
        m.ifgt(fail);
        m.dup2();
        m.dconst(pool_, -1.0);
        m.dcmpg();
        m.ifge(ok);
        m.bind(fail);
        m.iconst(C::OUT_OF_RANGE);
        m.ireturn();
        m.bind(ok);
        call(m, s.op == C::OpAcos ? Fun::Acos : Fun::Asin);
        break;
      }
      case C::OpAnd:
      case C::OpOr: {
        arity(2);
        m.dconst(pool_, 0.0);
        m.dcmpl();  // y != 0 (NaN too) -> non-zero int
        m.dup_x2();
        m.pop();
        m.dconst(pool_, 0.0);
        m.dcmpl();  // int(y) int(x)
        Method::Label decided1 = m.newLabel(), decided = m.newLabel(), end = m.newLabel();
        const bool isAnd = s.op == C::OpAnd;
        // and: x == 0 -> 0; or: x != 0 -> 1; else the answer is y's.
        if (isAnd) m.ifeq(decided1); else m.ifne(decided1);
        if (isAnd) m.ifeq(decided); else m.ifne(decided);
        m.dconst(pool_, isAnd ? 1.0 : 0.0);
        m.goto_(end);
        m.bind(decided1);
        m.pop();
        m.bind(decided);
        m.dconst(pool_, isAnd ? 0.0 : 1.0);
        m.bind(end);
        break;
      }
      case C::OpAtan: arity(1); call(m, Fun::Atan); break;
      case C::OpAtan2: arity(2); call(m, Fun::Atan2); break;
      case C::OpCeil: arity(1); call(m, Fun::Ceil); break;
      case C::OpFloor: arity(1); call(m, Fun::Floor); break;
      case C::OpConj:
      case C::OpIdentity:
      case C::OpReal:
      case C::OpUPlus:
      case C::OpTableConst: arity(1); break;
      case C::OpImag:
        arity(1);
        m.pop2();
        m.dconst(pool_, 0.0);
        break;
      case C::OpCos: arity(1); call(m, Fun::Cos); break;
      case C::OpCosh: arity(1); call(m, Fun::Cosh); break;
      case C::OpSin: arity(1); call(m, Fun::Sin); break;
      case C::OpSinh: arity(1); call(m, Fun::Sinh); break;
      case C::OpTan: arity(1); call(m, Fun::Tan); break;
      case C::OpTanh: arity(1); call(m, Fun::Tanh); break;
      case C::OpExp: arity(1); call(m, Fun::Exp); break;
      case C::OpCot: arity(1); call(m, Fun::Tan); reciprocal(m); break;
      case C::OpCoth: arity(1); call(m, Fun::Tanh); reciprocal(m); break;
      case C::OpCsc: arity(1); call(m, Fun::Sin); reciprocal(m); break;
      case C::OpCsch: arity(1); call(m, Fun::Sinh); reciprocal(m); break;
      case C::OpSec: arity(1); call(m, Fun::Cos); reciprocal(m); break;
      case C::OpSech: arity(1); call(m, Fun::Cosh); reciprocal(m); break;
      case C::OpDiv:
      case C::OpDiv2: arity(2); m.ddiv(); break;
      case C::OpMinus: arity(2); m.dsub(); break;
      case C::OpPlus: arity(2); m.dadd(); break;
      case C::OpMult: arity(2); m.dmul(); break;
      case C::OpUMinus: arity(1); m.dneg(); break;
      case C::OpMod:
        arity(2);
        call(m, Fun::ModImpl);
        break;
      case C::OpEQ: arity(2); m.dcmpl(); truth(m, &Method::ifne); break;
      case C::OpNE: arity(2); m.dcmpl(); truth(m, &Method::ifeq); break;
      case C::OpGE: arity(2); m.dcmpl(); truth(m, &Method::iflt); break;
      case C::OpGT: arity(2); m.dcmpl(); truth(m, &Method::ifle); break;
      case C::OpLE: arity(2); m.dcmpg(); truth(m, &Method::ifgt); break;
      case C::OpLT: arity(2); m.dcmpg(); truth(m, &Method::ifge); break;
      case C::OpNot:
        arity(1);
        m.dconst(pool_, 0.0);
        m.dcmpl();  // NaN: -1, not zero
        truth(m, &Method::ifne);
        break;
      case C::OpFix: {
        arity(1);
        Method::Label down = m.newLabel(), end = m.newLabel();
        m.dup2();
        m.dconst(pool_, 0.0);
        m.dcmpg();  // NaN: 1, floor
        m.ifge(down);
        call(m, Fun::Ceil);
        m.goto_(end);
        m.bind(down);
        call(m, Fun::Floor);
        m.bind(end);
        break;
      }
      case C::OpRound:
        arity(1);
        call(m, Fun::Round);
        m.l2d();
        break;
      case C::OpChoice: {
        arity(3);
        m.dstore(scratch2_);
        m.dstore(scratch1_);
        m.dconst(pool_, 0.0);
        m.dcmpl();  // NaN: -1, counts as non-zero
        Method::Label third = m.newLabel(), end = m.newLabel();
        m.ifeq(third);
        m.dload(scratch1_);
        m.goto_(end);
        m.bind(third);
        m.dload(scratch2_);
        m.bind(end);
        break;
      }
      case C::OpLog:
      case C::OpLog10:
      case C::OpLog2:
      case C::OpSqrt:
        arity(1);
        m.dup2();
        m.dconst(pool_, 0.0);
        m.dcmpg();  // NaN: 1, passes
        failUnless(m, &Method::ifge, s.op == C::OpSqrt ? C::SQRT_OF_NEGATIVE : C::LOG_OF_NEGATIVE);
        if (s.op == C::OpSqrt) {
          call(m, Fun::Sqrt);
        } else if (s.op == C::OpLog10) {
          call(m, Fun::Log10);
        } else {
          call(m, Fun::Log);
          if (s.op == C::OpLog2) {
            m.dconst(pool_, 1.4426950408889634);
            m.dmul();
          }
        }
        break;
      case C::OpMax: arity(2); select(m, 1, 2); break;  // x >= y ? x : y
      case C::OpMin: arity(2); select(m, 2, 1); break;  // y >= x ? x : y
      case C::OpPow: {
        // Fails for x < 0 and y no integer (NaN is none, infinities are);
        // 1^y and (-1)^(+-inf) are 1 as in C, where Math.pow gives NaN.
        arity(2);
        m.dstore(scratch2_);
        m.dstore(scratch1_);
        Method::Label ok = m.newLabel(), one = m.newLabel(), general = m.newLabel(),
                      end = m.newLabel();
        m.dload(scratch1_);
        m.dconst(pool_, 0.0);
        m.dcmpg();  // NaN: 1, passes
        m.ifge(ok);
        m.dload(scratch2_);
        m.dup2();
        call(m, Fun::Floor);
        m.dcmpl();  // NaN: -1, no integer
        m.ifeq(ok);
        m.iconst(C::POWER_OF_NEGATIVE);
        m.ireturn();
        m.bind(ok);
        m.dload(scratch1_);
        m.dconst(pool_, 1.0);
        m.dcmpl();
        m.ifeq(one);
        m.dload(scratch1_);
        m.dconst(pool_, -1.0);
        m.dcmpl();
        m.ifne(general);
        m.dload(scratch2_);
        m.dconst(pool_, HUGE_VAL);
        m.dcmpl();
        m.ifeq(one);
        m.dload(scratch2_);
        m.dconst(pool_, -HUGE_VAL);
        m.dcmpl();
        m.ifeq(one);
        m.bind(general);
        m.dload(scratch1_);
        m.dload(scratch2_);
        call(m, Fun::Pow);
        m.goto_(end);
        m.bind(one);
        m.dconst(pool_, 1.0);
        m.bind(end);
        break;
      }
      case C::OpSq:
        arity(1);
        m.dup2();
        m.dmul();
        break;
      case C::OpCube:  // x*(x*x) = (x*x)*x: the product commutes exactly
        arity(1);
        m.dup2();
        m.dup2();
        m.dmul();
        m.dmul();
        break;
      case C::OpPow4:  // x*(x*(x*x)) = ((x*x)*x)*x
        arity(1);
        m.dup2();
        m.dup2();
        m.dup2();
        m.dmul();
        m.dmul();
        m.dmul();
        break;
      default:
        QV_RAISE(exprcomp, Internal_error_symbolic_processing, "Operation", std::int64_t{s.op});
    }
    if (s.dest >= 0) m.dstore(slot(s.dest));
  }

  ExprComp::ClassFile& cf_;
  ExprComp::ConstPool& pool_;
  const EvalProgram& p_;
  std::vector<int> lastRead_;  // step -> last item reading its value
  int method_ = 0;              // the method being emitted: 0 work, k continuation k
  std::vector<int> writtenIn_;  // register -> method that last wrote it
  std::vector<int> writer_;     // register -> step that last wrote it
  int scratch1_ = 0, scratch2_ = 0;
};

}  // namespace

void ExprComp::Impl::createWork(ClassFile& cf, const std::string& methodName) {
  WorkEmitter(cf, program).emit(methodName);
}

// main(String[] args): args[0] the number of calls, args[1..] the inputs.
// Calls the work method that many times, then prints each output on a line,
// the milliseconds taken, and a non-zero status.
ExprComp::Method ExprComp::Impl::createMain(ConstPool& pool, int workMethodRef, int nargout,
                                            int nargin) {
  Method m(pool, "main", "([Ljava/lang/String;)V", 0x0001 | 0x0008);
  const int out = pool.addFieldref("java/lang/System", "out", "Ljava/io/PrintStream;");
  const int parseInt = pool.addMethodref("java/lang/Integer", "parseInt", "(Ljava/lang/String;)I");
  const int parseDouble =
      pool.addMethodref("java/lang/Double", "parseDouble", "(Ljava/lang/String;)D");
  const int millis = pool.addMethodref("java/lang/System", "currentTimeMillis", "()J");
  const int println = pool.addMethodref("java/io/PrintStream", "println", "(Ljava/lang/String;)V");
  const int print = pool.addMethodref("java/io/PrintStream", "print", "(Ljava/lang/String;)V");
  const int printlnD = pool.addMethodref("java/io/PrintStream", "println", "(D)V");
  const int printlnJ = pool.addMethodref("java/io/PrintStream", "println", "(J)V");
  const int printlnI = pool.addMethodref("java/io/PrintStream", "println", "(I)V");
  // Locals: 0 args, 1 count, 2 in, 3 out, 4 i, 5 status, 6-7 start time.
  m.aload(0);
  m.iconst(0);
  m.aaload();
  m.invokestatic(pool, parseInt);
  m.istore(1);
  m.iconst(pool, nargin);
  m.newarrayDouble();
  m.astore(2);
  m.iconst(pool, nargout);
  m.newarrayDouble();
  m.astore(3);
  for (int k = 0; k < nargin; ++k) {
    m.aload(2);
    m.iconst(pool, k);
    m.aload(0);
    m.iconst(pool, k + 1);
    m.aaload();
    m.invokestatic(pool, parseDouble);
    m.dastore();
  }
  m.iconst(0);
  m.istore(5);
  m.invokestatic(pool, millis);
  m.lstore(6);
  m.iconst(0);
  m.istore(4);
  Method::Label loop = m.newLabel(), done = m.newLabel();
  m.bind(loop);
  m.iload(4);
  m.iload(1);
  m.if_icmpge(done);
  m.aload(2);
  m.aload(3);
  m.invokestatic(pool, workMethodRef);
  m.istore(5);
  m.iinc(4, 1);
  m.goto_(loop);
  m.bind(done);
  for (int k = 0; k < nargout; ++k) {
    m.getstatic(pool, out);
    m.aload(3);
    m.iconst(pool, k);
    m.daload();
    m.invokevirtual(pool, printlnD);
  }
  m.getstatic(pool, out);
  m.ldc(pool.addString("Milliseconds: "));
  m.invokevirtual(pool, print);
  m.getstatic(pool, out);
  m.invokestatic(pool, millis);
  m.lload(6);
  m.lsub();
  m.invokevirtual(pool, printlnJ);
  Method::Label fine = m.newLabel();
  m.iload(5);
  m.ifeq(fine);
  m.getstatic(pool, out);
  m.ldc(pool.addString("Status: "));
  m.invokevirtual(pool, print);
  m.getstatic(pool, out);
  m.iload(5);
  m.invokevirtual(pool, printlnI);
  m.bind(fine);
  m.getstatic(pool, out);
  m.ldc(pool.addString("Done."));
  m.invokevirtual(pool, println);
  m.return_();
  m.finish(0);
  return m;
}

void ExprComp::Impl::compileToClass(ClassFile& cf, const std::string& methodName, bool withMain) {
  timings.clear();
  timed("compile", [&] {
    compiled = false;
    runPasses();
    const int nin = static_cast<int>(inputs.size()), nout = static_cast<int>(outputs.size());
    cf.addField(Field::intConstant(cf.pool(), "NARGIN", nin));
    cf.addField(Field::intConstant(cf.pool(), "NARGOUT", nout));
    cf.addDefaultConstructor();
    timed("createWork", [&] { createWork(cf, methodName); });
    if (withMain)
      cf.addMethod(createMain(cf.pool(), cf.selfMethodRef(methodName, "([D[D)I"), nout, nin));
  });
}

void ExprComp::compile(const std::string& className, const std::string& methodName,
                       std::vector<unsigned char>& bytes, bool withMain) {
  ClassFile cf(className);
  impl_->compileToClass(cf, methodName, withMain);
  std::vector<unsigned char> result;
  MemoryBytecodeStream out(result);
  cf.write(out);
  bytes = std::move(result);
}

void ExprComp::compile(const std::string& className, const std::string& methodName,
                       const std::string& fileName, bool withMain) {
  ClassFile cf(className);
  impl_->compileToClass(cf, methodName, withMain);
  FileBytecodeStream out(fileName);
  cf.write(out);
  out.close();
}

void ExprComp::compile(const std::string& className, const std::string& methodName,
                       std::vector<unsigned char>& bytes, const std::vector<std::string>& definitions,
                       const std::vector<std::string>& inputs,
                       const std::vector<std::string>& outputs, bool withMain) {
  ExprComp c;
  c.parse(definitions, inputs, outputs);
  c.compile(className, methodName, bytes, withMain);
}

void ExprComp::compile(const std::string& className, const std::string& methodName,
                       const std::string& fileName, const std::vector<std::string>& definitions,
                       const std::vector<std::string>& inputs,
                       const std::vector<std::string>& outputs, bool withMain) {
  ExprComp c;
  c.parse(definitions, inputs, outputs);
  c.compile(className, methodName, fileName, withMain);
}

}  // namespace qvarray
