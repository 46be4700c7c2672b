// Base results of the function-object tree: every typed overload a class does
// not implement returns 2, and the default error record is "funeval".
#include <string>

#include "qvarray/expr/funobj.h"

namespace qvarray {

using Code = FunObj::FunOpCode;

GenFunObj::~GenFunObj() = default;

GenFunPtr GenFunObj::getFunctionForm(int) const { return {}; }

// Several arguments.
Code FunObj::operator()(const std::vector<RS>&, std::size_t) const { return Failure1; }
Code FunObj::operator()(const std::vector<CS>&, std::size_t) const { return Failure1; }
Code FunObj::operator()(const std::vector<RA>&, std::size_t, std::size_t) const { return Failure1; }
Code FunObj::operator()(const std::vector<CA>&, std::size_t, std::size_t) const { return Failure1; }

// Two operands out of place.
Code FunObj::operator()(const CA&, const CA&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const RA&, const CA&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const CA&, const RA&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const RA&, const RA&, std::size_t, const RA&) const { return Failure1; }
Code FunObj::operator()(const CS&, const CA&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const RS&, const CA&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const CS&, const RA&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const RS&, const RA&, std::size_t, const RA&) const { return Failure1; }
Code FunObj::operator()(const CA&, const CS&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const RA&, const CS&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const CA&, const RS&, std::size_t, const CA&) const { return Failure1; }
Code FunObj::operator()(const RA&, const RS&, std::size_t, const RA&) const { return Failure1; }
Code FunObj::operator()(const CS&, const CS&, const CS&) const { return Failure1; }
Code FunObj::operator()(const RS&, const CS&, const CS&) const { return Failure1; }
Code FunObj::operator()(const CS&, const RS&, const CS&) const { return Failure1; }
Code FunObj::operator()(const RS&, const RS&, const RS&) const { return Failure1; }

// Two operands in place.
Code FunObj::operator()(const CA&, const CA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const RA&, const CA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const CA&, const RA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const RA&, const RA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const CS&, const CA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const RS&, const CA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const CS&, const RA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const RS&, const RA&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const CA&, const CS&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const RA&, const CS&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const CA&, const RS&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const RA&, const RS&, std::size_t, int) const { return Failure1; }
Code FunObj::operator()(const CS&, const CS&, int) const { return Failure1; }
Code FunObj::operator()(const RS&, const CS&, int) const { return Failure1; }
Code FunObj::operator()(const CS&, const RS&, int) const { return Failure1; }
Code FunObj::operator()(const RS&, const RS&, int) const { return Failure1; }

// One argument.
Code FunObj::operator()(const RS&) const { return Failure1; }
Code FunObj::operator()(const CS&) const { return Failure1; }
Code FunObj::operator()(const RA&, std::size_t) const { return Failure1; }
Code FunObj::operator()(const CA&, std::size_t) const { return Failure1; }

bool FunObj::isLinear(int) const { return false; }

std::shared_ptr<qvbase::ErrInfo> FunObj::errorRecord(qvbase::ErrModule module,
                                                     qvbase::ErrKey key) const {
  auto info = std::make_shared<qvbase::ErrInfo>(qvbase::errorName(module));
  info->add("message", qvbase::errorName(key));
  info->add("fun", getName());
  return info;
}

std::shared_ptr<qvbase::ErrInfo> FunObj::makeError(unsigned code) const {
  if (!isFailure(code)) return {};
  return errorRecord(qvbase::ErrModule::evalfun, qvbase::ErrKey::funeval);
}

void FunObj::raiseError(unsigned code) const {
  std::shared_ptr<qvbase::ErrInfo> info = makeError(code);
  if (!info) return;
  // The record names its module and key by text; both are registered.
  qvbase::ErrModule module = qvbase::ErrModule::evalfun;
  for (qvbase::ErrModule m : qvbase::allErrorModules())
    if (info->module() == qvbase::errorName(m)) module = m;
  qvbase::ErrKey key = qvbase::ErrKey::funeval;
  const std::string* message = info->find("message");
  QV_ASSERT(message && qvbase::findErrorKey(*message, key), evalfun);
  qvbase::raise(module, __LINE__, key, info->pairs());
}

ValRepPtr FunObj::evalValues(const std::vector<ValRepPtr>&, bool) const { return {}; }

bool FunObj::acceptsValKind(unsigned kind) const { return (kind & Structured) == 0; }

bool FunObj::evalInto(const double*, double*, std::size_t, unsigned&) const { return false; }
bool FunObj::evalInto(const double*, std::ptrdiff_t, const double*, std::ptrdiff_t, double*,
                      std::size_t, unsigned&) const {
  return false;
}

}  // namespace qvarray
