#include "surfaces/Palettes.h"

namespace tessivane {

namespace {

struct Shades {
  QRgb window = 0;
  QRgb base = 0;
  QRgb alternate = 0;
  QRgb text = 0;
  QRgb disabled = 0;
  QRgb button = 0;
  QRgb line = 0;
  QRgb highlight = 0;
  QRgb highlightedText = 0;
  QRgb link = 0;
};

constexpr int darkLimit = 128;

QPalette paletteOf(const Shades& shades) {
  QPalette palette(QColor(shades.button), QColor(shades.window));
  const auto set = [&palette](QPalette::ColorRole role, QRgb color) {
    palette.setColor(role, QColor(color));
  };
  set(QPalette::Window, shades.window);
  set(QPalette::Base, shades.base);
  set(QPalette::AlternateBase, shades.alternate);
  set(QPalette::Button, shades.button);
  set(QPalette::ToolTipBase, shades.alternate);
  for (const auto role : {QPalette::WindowText,
                          QPalette::Text,
                          QPalette::ButtonText,
                          QPalette::ToolTipText,
                          QPalette::BrightText})
    set(role, shades.text);
  set(QPalette::PlaceholderText, shades.disabled);
  set(QPalette::Mid, shades.line);
  set(QPalette::Highlight, shades.highlight);
  set(QPalette::HighlightedText, shades.highlightedText);
  set(QPalette::Link, shades.link);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    palette.setColor(QPalette::Disabled, role, QColor(shades.disabled));
  return palette;
}

QColor either(const QPalette& palette, QRgb light, QRgb dark) {
  return QColor(isDark(palette) ? dark : light);
}

}  // namespace

QPalette lightPalette() {
  return paletteOf({.window = 0xfff4f4f6,
                    .base = 0xffffffff,
                    .alternate = 0xfff0f1f4,
                    .text = 0xff1c1d21,
                    .disabled = 0xff8b8d96,
                    .button = 0xfffafafb,
                    .line = 0xffd8d9df,
                    .highlight = 0xffdbe7fd,
                    .highlightedText = 0xff1c1d21,
                    .link = 0xff1d5fd1});
}

QPalette darkPalette() {
  return paletteOf({.window = 0xff222327,
                    .base = 0xff1a1b1e,
                    .alternate = 0xff2a2b30,
                    .text = 0xffececef,
                    .disabled = 0xff7d7f88,
                    .button = 0xff303137,
                    .line = 0xff3b3c43,
                    .highlight = 0xff2f4368,
                    .highlightedText = 0xffffffff,
                    .link = 0xff7fb0ff});
}

bool isDark(const QPalette& palette) {
  return palette.color(QPalette::Base).lightness() < darkLimit;
}

QColor secondaryText(const QPalette& palette) {
  return either(palette, 0xff62646d, 0xffa3a5ae);
}

QColor statusColor(SessionStatus status, const QPalette& palette) {
  switch (status) {
    case SessionStatus::needsYou:
      return either(palette, 0xffb8450b, 0xfffb9a4b);
    case SessionStatus::working:
      return either(palette, 0xff1d5fd1, 0xff74a9ff);
    case SessionStatus::yourTurn:
      return either(palette, 0xff18794a, 0xff5fd194);
    case SessionStatus::idle:
      break;
  }
  return secondaryText(palette);
}

QColor noticeGround(const QPalette& palette) {
  return either(palette, 0xfffdf0d3, 0xff40351c);
}

QColor noticeText(const QPalette& palette) {
  return either(palette, 0xff5c4204, 0xfff2d795);
}

}  // namespace tessivane
