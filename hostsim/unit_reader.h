// unit_reader.h - reads what a LUN is: its size, its names, its identity.
#pragma once

#include "reading.h"

#include <memory>

namespace hostsim
{

class unit_reader : public object_reader<lun_description>
{
  public:
    unit_reader(reading &r, lun_description &into) : object_reader(into, unit_members), r_(r) {}

    void close(const place &at) override;

  protected:
    reading &r_;

  private:
    nested nested_member(std::string_view name) const override;
    std::unique_ptr<container> open_nested(const place &at) override;
};

} // namespace hostsim
