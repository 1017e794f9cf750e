#include "Tool.h"

QString rawValue(Tool tool) {
    switch (tool) {
    case Tool::pen:
        return QStringLiteral("pen");
    case Tool::arrow:
        return QStringLiteral("arrow");
    case Tool::ellipse:
        return QStringLiteral("ellipse");
    case Tool::rect:
        return QStringLiteral("rect");
    case Tool::highlighter:
        return QStringLiteral("highlighter");
    case Tool::text:
        return QStringLiteral("text");
    }
    return {};
}

std::optional<Tool> toolFromRawValue(QStringView raw) {
    for (Tool tool : allTools) {
        if (raw == rawValue(tool))
            return tool;
    }
    return std::nullopt;
}

bool isShapeTool(Tool tool) {
    return tool == Tool::arrow || tool == Tool::ellipse || tool == Tool::rect;
}

bool isFreehandTool(Tool tool) {
    return tool == Tool::pen || tool == Tool::highlighter;
}
