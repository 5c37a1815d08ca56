#include "middleware.h"

namespace Bureau {

void Middleware::start()
{
    emit started();
}

void Middleware::stop()
{
    emit stopped();
}

} // namespace Bureau
