#include "platform/AppearanceChoice.h"

namespace tessivane {

std::string_view rawValue(AppearanceChoice choice) {
  switch (choice) {
    case AppearanceChoice::system:
      return "system";
    case AppearanceChoice::light:
      return "light";
    case AppearanceChoice::dark:
      return "dark";
  }
  return "";
}

std::optional<AppearanceChoice> appearanceChoice(std::string_view rawValue) {
  for (const auto choice :
       {AppearanceChoice::system, AppearanceChoice::light, AppearanceChoice::dark}) {
    if (tessivane::rawValue(choice) == rawValue)
      return choice;
  }
  return std::nullopt;
}

}  // namespace tessivane
