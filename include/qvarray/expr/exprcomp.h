#pragma once
// ExprComp: compiles a set of named scalar real definitions, with designated
// inputs and outputs, into straight-line code: a JVM class whose work method
// computes every output from every input in one call, or an in-process
// evaluation of the same program (eval).
//
// Definitions are numbered. A definition is a constant or an operation (by
// operation number, see OpCode) on other definitions or inputs. The passes,
// in order: crossRef (checks, use lists), topoSort, eliminateCommon,
// topoSort, allocateRegs, optimizeStack, createEval, then class emission
// (createWork, createMain).
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API ExprComp {
 public:
  /// Run-time status codes of evaluated code (the work method's result).
  static constexpr int NO_ERROR = 0;
  static constexpr int LOG_OF_NEGATIVE = -1;
  static constexpr int SQRT_OF_NEGATIVE = -2;
  static constexpr int DIVIDE_BY_ZERO = -3;
  static constexpr int OUT_OF_RANGE = -4;
  static constexpr int POWER_OF_NEGATIVE = -5;
  /// The largest code length in bytes of one generated method.
  static constexpr int MAX_METHOD_SIZE = 7500;

  /// Operation numbers of addDef (fixed: generated code and function
  /// objects use them).
  enum OpCode : int {
    OpAbs = 1, OpAcos = 2, OpAnd = 3, OpAsin = 4, OpAtan = 5, OpAtan2 = 6, OpCeil = 7,
    OpConj = 8, OpCos = 9, OpCosh = 10, OpCot = 11, OpCoth = 12, OpCsc = 13, OpCsch = 14,
    OpDiv = 15, OpDiv2 = 16, OpEQ = 17, OpExp = 18, OpFix = 19, OpFloor = 20, OpGE = 21,
    OpGT = 22, OpIdentity = 23, OpChoice = 24, OpImag = 25, OpLE = 26, OpLog = 27,
    OpLog10 = 28, OpLog2 = 29, OpLT = 30, OpMax = 31, OpMin = 32, OpMinus = 33, OpMod = 34,
    OpNE = 35, OpNot = 36, OpTableConst = 37, OpOr = 38, OpPlus = 39, OpPow = 40, OpSq = 41,
    OpCube = 42, OpPow4 = 43, OpReal = 44, OpRound = 45, OpSec = 46, OpSech = 47, OpSign = 48,
    OpSin = 49, OpSinh = 50, OpSqrt = 51, OpTan = 52, OpTanh = 53, OpMult = 54, OpUMinus = 55,
    OpUPlus = 56
  };

  // The class-file model and byte sinks (defined in the library's class
  // emission sources).
  class BytecodeStream;
  class MemoryBytecodeStream;
  class FileBytecodeStream;
  class ConstPool;
  class Field;
  class Method;
  class FunctionTable;
  class ClassFile;

  ExprComp();
  ExprComp(const ExprComp& other);
  ExprComp& operator=(const ExprComp& other);
  ~ExprComp();

  /// Marks `id` as supplied by the caller; the order of calls fixes the
  /// positions in the input array.
  void addInput(int id);
  /// Appends `id` to the outputs.
  void addOutput(int id);
  /// The name of `id` in messages.
  void setName(int id, const std::string& name);
  /// The name of `id`: the one set, else a generated one.
  std::string getVarName(int id) const;

  /// A constant.
  void addDef(int id, double value);
  /// An operation on one, two or three operands (definition numbers).
  void addDef(int id, int op, int a);
  void addDef(int id, int op, int a, int b);
  void addDef(int id, int op, int a, int b, int c);
  /// An operation on any number of operands.
  void addDef(int id, int op, const std::vector<int>& args);

  /// Definitions "name = expression" over the named inputs; the outputs are
  /// named. Operators and the function names abs, acos, asin, atan, atan2,
  /// ceil, conj, cos, cosh, cot, coth, csc, csch, exp, fix, floor, identity,
  /// imag, log, log10, log2, max, min, mod, real, round, sec, sech, sign, sin,
  /// sinh, sqrt, tan, tanh become their operations, but sign, which no
  /// operation evaluates, becomes x != x ? x : (x > 0) - (x < 0) (NaN for
  /// NaN, +0 for either zero); x^2, x^3, x^4 with a literal exponent the
  /// integer powers. Raises "Syntax_error_in_expression"
  /// with "Expression" (the whole text) for a text that does not parse or a
  /// call with the wrong number of arguments, "Unimplemented_operator" with
  /// "Name" for an unknown function or a construct without an operation
  /// (strings, lists, units); nothing is added then.
  void parse(const std::vector<std::string>& definitions, const std::vector<std::string>& inputs,
             const std::vector<std::string>& outputs);

  /// Evaluates the program in process (running the passes first if needed),
  /// one value in `in` per input ("QUBRIX_assertion_failure" else); a
  /// non-zero status raises its key ("Log_of_negative" and so on) and
  /// leaves `out` unchanged. The passes raise their messages as the key:
  /// "Duplicate input: NAME", "Duplicate definition of NAME" (also for a
  /// number that is an input), "Undefined inputs: A, B, ..." (ten names, then
  /// " (N more)"), "Output #K lacks definition." (K counted from 1), "Cyclic
  /// dependency for definition #ID". Operation 48 (sign) has no evaluation
  /// rule and raises "Internal_error_symbolic_processing", as any unknown
  /// number does.
  void eval(const std::vector<double>& in, std::vector<double>& out) const;

  /// Builds the class and returns its bytes. Values live at once (outputs
  /// count until the end) beyond about 32 760 exceed the JVM's local slots:
  /// "Compilation failed: Too many values live at once."; more than about
  /// 32 000 distinct constants fill the constant pool: "Compilation failed:
  /// Too many different constants.". Either refusal returns no bytes; eval
  /// still works.
  void compile(const std::string& className, const std::string& methodName,
               std::vector<unsigned char>& bytes, bool withMain);
  /// Builds the class and writes it to `fileName` ("Cannot_create_native_file").
  void compile(const std::string& className, const std::string& methodName,
               const std::string& fileName, bool withMain);
  /// A fresh compiler: parse, then compile.
  static void compile(const std::string& className, const std::string& methodName,
                      std::vector<unsigned char>& bytes, const std::vector<std::string>& definitions,
                      const std::vector<std::string>& inputs,
                      const std::vector<std::string>& outputs, bool withMain);
  static void compile(const std::string& className, const std::string& methodName,
                      const std::string& fileName, const std::vector<std::string>& definitions,
                      const std::vector<std::string>& inputs,
                      const std::vector<std::string>& outputs, bool withMain);

  /// The evaluation program (running the passes first if needed), one line
  /// per step: "r3 = plus(in0, r1)  # name", "stack = ..." for a value left
  /// on the operand stack for the next step, operands "stack", "rK"
  /// (register), "inK" (input position) or the constant's value; then one
  /// line "outK = operand" per output. For diagnosis.
  std::string dumpFlatList() const;

  /// The run log of the last compilation: (timer name, seconds) in the order
  /// stopped: each pass by its name ("crossRef", "topoSort" twice,
  /// "eliminateCommon", "allocateRegs", "optimizeStack", "createEval",
  /// "createWork"), then "compile" for the whole run.
  const std::vector<std::pair<std::string, double>>& timings() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qvarray
