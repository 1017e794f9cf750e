#pragma once

#include <QString>
#include <QStringView>
#include <array>
#include <optional>

enum class Tool { pen, arrow, ellipse, rect, highlighter, text };

inline constexpr std::array<Tool, 6> allTools = {Tool::pen,  Tool::arrow,       Tool::ellipse,
                                                 Tool::rect, Tool::highlighter, Tool::text};

// "pen", "arrow", "ellipse", "rect", "highlighter", "text".
QString rawValue(Tool tool);
// Exactly the six raw values, case-sensitive; anything else gives no tool.
std::optional<Tool> toolFromRawValue(QStringView raw);

bool isShapeTool(Tool tool);
bool isFreehandTool(Tool tool);
