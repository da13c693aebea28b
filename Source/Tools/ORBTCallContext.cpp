#include "Tools/ORBTCallContext.h"

namespace orbtexture
{

namespace
{
const ORBTCallContext kNoContext;
thread_local const ORBTCallContext* tCurrent = nullptr;
} // namespace

const ORBTCallContext& CurrentCallContext() { return tCurrent ? *tCurrent : kNoContext; }

CScopedCallContext::CScopedCallContext(const ORBTCallContext& context) : m_previous(tCurrent) { tCurrent = &context; }

CScopedCallContext::~CScopedCallContext() { tCurrent = m_previous; }

} // namespace orbtexture
