#include "onvifTypes/onvifLog.h"

#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/current_thread_id.hpp>

namespace OnvifLog {

Logger makeLogger(const QString& clsName)
{
    Logger logger;
    setClsName(logger, clsName);
    return logger;
}

void setClsName(Logger& logger, const QString& clsName)
{
    logger.add_attribute("ClsName", boost::log::attributes::constant<std::string>(clsName.toStdString()));
}

void prepareRecord(Logger& logger)
{
    logger.add_attribute("Tag", boost::log::attributes::constant<bool>(true));
    logger.add_attribute("ThreadID", boost::log::attributes::current_thread_id());
}

} // namespace OnvifLog
