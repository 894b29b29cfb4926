// Read from CControlPanel::Show down from the end. Widgets are asked for anew in every frame; a section takes the
// settings, and says whether it changed them.

#include "control_panel.h"

#include "kr_log_unique.h"

#include "capture_words.h"
#include "panel_words.h"
#include "text.h"
#include "thread_pool.h"
#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <imgui.h>

namespace Viewer
{
namespace
{
	const ImVec4 kLit(0.20f, 0.52f, 0.78f, 1.0f);
	const ImVec4 kGood(0.45f, 0.78f, 0.52f, 1.0f);
	const ImVec4 kAdvice(0.93f, 0.72f, 0.32f, 1.0f);
	const ImVec4 kBad(0.96f, 0.42f, 0.38f, 1.0f);
	constexpr float kButtonHeight = 32.0f; // the same whatever the font

	struct SStage
	{
		const char *m_Name;
		double SSortTimes::*m_Time;
		ImU32 m_Colour;
	};
	const SStage kStages[] = {
		{"values", &SSortTimes::m_Values, IM_COL32(150, 110, 190, 255)}, // the lowest of a stack
		{"fill",   &SSortTimes::m_Fill,   IM_COL32(92,  176, 136, 255)},
		{"sort",   &SSortTimes::m_Sort,   IM_COL32(58,  132, 200, 255)},
		{"expand", &SSortTimes::m_Expand, IM_COL32(226, 164, 76,  255)},
	};

	float Em()
	{
		return ImGui::GetFontSize();
	}

	void Heading(const char *text)
	{
		ImGui::Dummy(ImVec2(0.0f, 0.15f * Em()));
		ImGui::TextDisabled("%s", text);
		const ImVec2 at = ImGui::GetCursorScreenPos();
		const float right = at.x + ImGui::GetContentRegionAvail().x;
		ImGui::GetWindowDrawList()->AddLine(at, ImVec2(right, at.y), ImGui::GetColorU32(ImGuiCol_Separator));
		ImGui::Dummy(ImVec2(0.0f, 0.1f * Em()));
	}

	/// A heading that folds its section away: open at first where the window is high enough for all of them.
	bool Section(const char *text)
	{
		constexpr float kRoomyHeight = 46.0f; // of a window that has room for every section, in heights of letters
		const bool isRoomy = ImGui::GetIO().DisplaySize.y > kRoomyHeight * Em();
		ImGui::Dummy(ImVec2(0.0f, 0.15f * Em()));
		return ImGui::CollapsingHeader(text, isRoomy ? ImGuiTreeNodeFlags_DefaultOpen : ImGuiTreeNodeFlags_None);
	}

	/// In a column of numbers.
	void Number(const char *format, double number)
	{
		char text[32];
		std::snprintf(text, sizeof(text), format, number);
		ImGui::TableNextColumn();
		const float width = ImGui::CalcTextSize(text).x;
		ImGui::SetCursorPosX(ImGui::GetCursorPosX() + std::max(0.0f, 5.0f * Em() - width));
		ImGui::TextUnformatted(text);
	}

	/// What stands before a widget that takes the rest of the line.
	void Label(const char *text)
	{
		ImGui::AlignTextToFramePadding();
		ImGui::TextUnformatted(text);
		ImGui::SameLine(5.8f * Em());
		ImGui::SetNextItemWidth(-FLT_MIN);
	}

	void Paragraph(const ImVec4 &colour, const std::string &text)
	{
		ImGui::PushStyleColor(ImGuiCol_Text, colour);
		ImGui::TextWrapped("%s", text.c_str());
		ImGui::PopStyleColor();
	}

	std::optional<EAction> ShowButtons(const SViewSettings &settings, bool isCapture)
	{
		const float width = (ImGui::GetContentRegionAvail().x - ImGui::GetStyle().ItemSpacing.x) * 0.5f;
		std::optional<EAction> action;
		const auto button = [&](const char *text, EAction what, bool lit)
		{
			const std::string label = std::string(text) + "  [" + KeyName(what) + "]###" + KeyName(what);
			ImGui::PushStyleColor(ImGuiCol_Button, lit ? kLit : ImGui::GetStyle().Colors[ImGuiCol_Button]);
			if (ImGui::Button(label.c_str(), ImVec2(width, kButtonHeight)))
				action = what;
			ImGui::PopStyleColor();
		};
		button(settings.m_Playing ? "Pause" : "Play", EAction::PlayOrPause, false);
		ImGui::SameLine();
		button("Step", EAction::Step, false);
		button(settings.m_Sorting ? "Sorting on" : "Sorting off", EAction::Sorting, settings.m_Sorting);
		ImGui::SameLine();
		if (isCapture)
			button(("As " + std::string(ShapeName(settings.m_Shape))).c_str(), EAction::NextShape, false);
		else
			button(
				settings.m_FreezeOrder ? "Order frozen" : "Freeze order", EAction::FreezeOrder, settings.m_FreezeOrder);
		return action;
	}

	void ShowRamp(const SLegend &legend)
	{
		const ImVec2 at = ImGui::GetCursorScreenPos();
		const float width = ImGui::GetContentRegionAvail().x;
		const float height = 0.5f * Em();
		const auto colour = [](u32 i)
		{ return ImGui::GetColorU32(ImVec4(kRamp[i].m_Red, kRamp[i].m_Green, kRamp[i].m_Blue, 1.0f)); };
		for (u32 i = 0; i + 1 < kRampLength; ++i)
		{
			const float left = at.x + width * float(i) / float(kRampLength - 1);
			const float right = at.x + width * float(i + 1) / float(kRampLength - 1);
			ImGui::GetWindowDrawList()->AddRectFilledMultiColor(
				ImVec2(left, at.y), ImVec2(right, at.y + height), colour(i), colour(i + 1), colour(i + 1), colour(i));
		}
		ImGui::Dummy(ImVec2(width, height));
		ImGui::TextDisabled("%s", legend.m_Least.c_str());
		ImGui::SameLine(ImGui::GetWindowContentRegionMax().x - ImGui::CalcTextSize(legend.m_Most.c_str()).x);
		ImGui::TextDisabled("%s", legend.m_Most.c_str());
	}

	bool ShowColours(SViewSettings &settings, u32 mostLayers)
	{
		Label("Colours");
		bool changed = false;
		if (ImGui::BeginCombo("##colours", ColourName(settings.m_Colour)))
		{
			for (const EColour colour : kLiveColours)
				if (ImGui::Selectable(ColourName(colour), colour == settings.m_Colour))
				{
					settings.m_Colour = colour;
					changed = true;
				}
			ImGui::EndCombo();
		}
		const SLegend legend = Legend(settings.m_Colour, mostLayers);
		if (!legend.m_Most.empty())
			ShowRamp(legend);
		return changed;
	}

	bool ShowWipe(SViewSettings &settings)
	{
		constexpr struct
		{
			EWipe m_Kind;
			const char *m_Text;
		} kWipes[] = {
			{EWipe::None,     "none"                },
			{EWipe::Unsorted, "unsorted | sorted"   },
			{EWipe::Frozen,   "frozen | live"       },
			{EWipe::KeyBits,  "32-bit | 16-bit keys"},
			{EWipe::Error,    "picture | error"     },
		};
		Label("Wipe");
		bool changed = false;
		if (ImGui::BeginCombo("##wipe", kWipes[u32(settings.m_Wipe.m_Kind)].m_Text))
		{
			for (const auto &wipe : kWipes)
				if (ImGui::Selectable(wipe.m_Text, wipe.m_Kind == settings.m_Wipe.m_Kind))
				{
					settings.m_Wipe.m_Kind = wipe.m_Kind;
					settings.m_Sorting = true;
					changed = true;
				}
			ImGui::EndCombo();
		}
		return changed;
	}

	bool ShowOrder(SViewSettings &settings, const IScene &scene)
	{
		Label("Order");
		bool changed = false;
		const std::vector<SPictureOfOrder> orders = SortedOrders(scene);
		const std::string current = OrderWords(settings.m_Sorting, settings.m_Order, orders);
		if (ImGui::BeginCombo("##order", current.c_str()))
		{
			for (const SPictureOfOrder &picture : orders)
				if (ImGui::Selectable(picture.m_Label, settings.m_Sorting && picture.m_Order == settings.m_Order))
				{
					settings.m_Order = picture.m_Order;
					settings.m_Sorting = true;
					changed = true;
				}
			ImGui::EndCombo();
		}
		return changed;
	}

	bool ShowOutput(SViewSettings &settings, const SViewFigures &figures)
	{
		bool changed = false;
		Label("Indices");
		int bits = int(settings.m_IndexBits);
		changed |= ImGui::RadioButton("16 bits", &bits, 16);
		ImGui::SameLine();
		changed |= ImGui::RadioButton("32 bits", &bits, 32);
		settings.m_IndexBits = u32(bits);

		Label("Room for");
		int percent = int(settings.m_OutputPercent);
		changed |= ImGui::SliderInt("##output", &percent, 0, 100, "%d %% of the output", ImGuiSliderFlags_AlwaysClamp);
		settings.m_OutputPercent = u32(percent);
		changed |= ImGui::Checkbox("Output is not aligned", &settings.m_MisalignOutput);

		const std::string lost = LostWords(figures.m_Primitives);
		if (!lost.empty())
			Paragraph(kAdvice, lost);
		return changed;
	}

	/// The next of 1, 2, 5, 10, 20, ... that is no less.
	double RoundedUp(double number)
	{
		double power = 1.0;
		while (power * 10.0 < number)
			power *= 10.0;
		return number <= power         ? power
		       : number <= 2.0 * power ? 2.0 * power
		       : number <= 5.0 * power ? 5.0 * power
		                               : 10.0 * power;
	}

	/// Where a graph ends in which most sorts are well to be seen: one that was interrupted may reach beyond.
	double TopOf(const std::deque<SSortTimes> &history)
	{
		std::vector<double> totals = {1.0};
		for (const SSortTimes &times : history)
			totals.push_back(times.Total());
		const auto most = totals.begin() + std::ptrdiff_t((totals.size() - 1) * 9 / 10);
		std::nth_element(totals.begin(), most, totals.end());
		return RoundedUp(*most * 1.2);
	}

	// A column for each sort, its stages stacked.
	void ShowGraph(const std::deque<SSortTimes> &history)
	{
		const double top = TopOf(history);

		const ImVec2 size(ImGui::GetContentRegionAvail().x, 5.0f * Em());
		const ImVec2 low = ImGui::GetCursorScreenPos();
		const ImVec2 high(low.x + size.x, low.y + size.y);
		ImDrawList *const list = ImGui::GetWindowDrawList();
		list->AddRectFilled(low, high, ImGui::GetColorU32(ImGuiCol_FrameBg), 4.0f);
		list->PushClipRect(low, high, true);
		const float width = size.x / float(CLiveView::kHistoryLength);
		float left = high.x - width * float(history.size());
		for (const SSortTimes &times : history)
		{
			float bottom = high.y;
			for (const SStage &stage : kStages)
			{
				const float height = float(times.*stage.m_Time / top) * size.y;
				list->AddRectFilled(ImVec2(left, bottom - height), ImVec2(left + width, bottom), stage.m_Colour);
				bottom -= height;
			}
			left += width;
		}
		list->PopClipRect();
		char label[32];
		std::snprintf(label, sizeof(label), "%.0f \u00b5s", top);
		list->AddText(ImVec2(low.x + 6.0f, low.y + 3.0f), ImGui::GetColorU32(ImGuiCol_TextDisabled), label);
		ImGui::Dummy(size);
	}

	SSortTimes MedianOf(const std::deque<SSortTimes> &history)
	{
		return Viewer::MedianOf(std::vector<SSortTimes>(history.begin(), history.end()));
	}

	ImU32 ColourOf(double SSortTimes::*stage)
	{
		for (const SStage &candidate : kStages)
			if (candidate.m_Time == stage)
				return candidate.m_Colour;
		return IM_COL32_BLACK_TRANS;
	}

	void ShowTimeLine(const STimeLine &line)
	{
		ImGui::TableNextColumn();
		const ImVec2 at = ImGui::GetCursorScreenPos();
		const float side = 0.7f * Em();
		ImGui::GetWindowDrawList()->AddRectFilled(ImVec2(at.x, at.y + 0.2f * Em()),
			ImVec2(at.x + side, at.y + 0.2f * Em() + side), ColourOf(line.m_Stage), 2.0f);
		ImGui::SetCursorPosX(ImGui::GetCursorPosX() + Em() * 1.1f);
		ImGui::TextUnformatted(line.m_Name.c_str());
		Number("%.1f \u00b5s", line.m_Microseconds);
		Number("%.2f ns", line.m_NanosecondsPerParticle);
	}

	void ShowTimes(const CLiveView &view)
	{
		if (!Section("Time of a sort"))
			return;
		ImGui::TextDisabled("%s", FrameRateWords(view.FramesPerSecond()).c_str());
		if (!view.Settings().m_Sorting)
		{
			ImGui::TextDisabled("%s", NoFindingsWords(false, false).c_str());
			return;
		}
		ShowGraph(view.History());
		const SSortTimes median = MedianOf(view.History());
		if (ImGui::BeginTable("times", 3))
		{
			for (const char *const title : {"median", "of a frame", "of a particle"})
			{
				ImGui::TableNextColumn();
				ImGui::TextDisabled("%s", title);
			}
			for (const STimeLine &line : TimeLines(median, view.Figures().m_ParticleCount))
				ShowTimeLine(line);
			ImGui::EndTable();
		}
		const ImVec4 &dim = ImGui::GetStyle().Colors[ImGuiCol_TextDisabled];
		Paragraph(dim, TimesNote(median));
		const std::string gain =
			GainWords(view.Settings().m_ThreadCount, median.Total(), MedianOf(view.HistoryOfOneThread()).Total());
		if (!gain.empty())
			Paragraph(kGood, gain);
	}

	bool ShowThreads(SViewSettings &settings)
	{
		Label("Threads");
		int count = int(settings.m_ThreadCount);
		const int most = int(std::max(MostThreads(), settings.m_ThreadCount));
		const bool changed = ImGui::SliderInt("##threads", &count, 1, most, "%d", ImGuiSliderFlags_AlwaysClamp);
		settings.m_ThreadCount = u32(count);
		return changed;
	}

	bool ShowFindings(SViewSettings &settings, const SViewFigures &figures)
	{
		if (!Section("What the validation finds"))
			return false;
		const bool changed = ImGui::Checkbox("Check every call before it sorts", &settings.m_CheckCalls);
		const std::vector<SFinding> &findings = figures.m_Findings.All();
		const std::string nothing = findings.empty() ? NoFindingsWords(settings.m_Sorting, settings.m_CheckCalls) : "";
		if (!nothing.empty())
			Paragraph(settings.m_Sorting ? kGood : ImGui::GetStyle().Colors[ImGuiCol_TextDisabled], nothing);
		for (const SFinding &finding : findings)
			Paragraph(finding.m_IsViolation ? kBad : kAdvice, finding.Text());
		return changed;
	}

	/// Of a captured call's drawing order, how many primitives are drawn, and what the last of them is.
	bool ShowScrubber(SViewSettings &settings, const CLiveView &view)
	{
		const u32 count = view.CaptureCount();
		Label("First");
		int first = int(std::min(settings.m_FirstCount, count));
		const bool changed =
			ImGui::SliderInt("##first", &first, 0, int(count), "%d primitives", ImGuiSliderFlags_AlwaysClamp);
		if (changed)
			settings.m_FirstCount = u32(first) == count ? kAllPrimitives : u32(first);
		Label("Size");
		int size = int(settings.m_SizePercent);
		const bool isResized = ImGui::SliderInt(
			"##size", &size, 10, 1000, "%d %%", ImGuiSliderFlags_Logarithmic | ImGuiSliderFlags_AlwaysClamp);
		settings.m_SizePercent = u32(size);
		if (first != 0)
			ImGui::TextWrapped("%s", PrimitiveWords(*view.Capture(), view.CaptureOrder(), u32(first) - 1).c_str());
		return changed || isResized;
	}

	void ShowCall(const CLiveView &view)
	{
		const CCaptureScene &scene = *view.Capture();
		const ImVec4 &dim = ImGui::GetStyle().Colors[ImGuiCol_TextDisabled];
		Heading("Outputs");
		for (const SOutputSentence &sentence : OutputWords(scene, view.CaptureOrder()))
			Paragraph(sentence.m_IsGood ? kGood : kBad, sentence.m_Sentence);
		Paragraph(dim, PlaceWords(scene, view.CaptureOrder()));
		if (!Section("The call"))
			return;
		for (const auto &[name, text] : CallLines(scene.Call().Sort()))
		{
			ImGui::TextDisabled("%s", name.c_str());
			ImGui::SameLine(5.8f * Em());
			ImGui::TextWrapped("%s", text.c_str());
		}
	}

	void ShowCallFindings(const SViewFigures &figures)
	{
		if (!Section("What the validation finds"))
			return;
		if (figures.m_Findings.All().empty())
			Paragraph(kGood, NoFindingsWords(true, true));
		for (const SFinding &finding : figures.m_Findings.All())
			Paragraph(finding.m_IsViolation ? kBad : kAdvice, finding.Text());
	}

	void ShowWarnings(const CLiveView &view)
	{
		if (!Section("What the library warned of"))
			return;
		const std::vector<CLogUniqueCollection::SEntry> entries = CPerfHotspotsRegistry::Registry()->Snapshot();
		if (entries.empty() && view.Assertions().empty())
			Paragraph(kGood, "No slow path was taken, and nothing asserted.");
		for (const CLogUniqueCollection::SEntry &entry : entries)
			Paragraph(kAdvice, entry.m_Message + " (" + Grouped(entry.m_TouchCount) + " times)");
		for (const std::string &assertion : view.Assertions())
			Paragraph(kBad, assertion);
		if (!entries.empty() && ImGui::Button("Forget warnings"))
			CPerfHotspotsRegistry::Registry()->Clear();
	}

	// From the camera that the order is for to what it looks at, as far as it lies in front of the one that is drawn
	// with.
	void ShowLineOfSight(const SCamera &sorted, const SCamera &drawn, const ImVec2 &size)
	{
		constexpr float kNearest = 0.05f;
		const SViewTransform view = ViewTransform(drawn, size.x / size.y);
		SClipPoint from = Projected(view, sorted.m_Position);
		const SClipPoint to = Projected(view, sorted.m_Target);
		const CFloat3 moved = Subtract(sorted.m_Position, drawn.m_Position);
		if (to.m_W <= kNearest || Dot(moved, moved) == 0.0f)
			return;
		if (from.m_W < kNearest)
		{
			const float t = (kNearest - from.m_W) / (to.m_W - from.m_W);
			from = {from.m_X + (to.m_X - from.m_X) * t, from.m_Y + (to.m_Y - from.m_Y) * t, kNearest};
		}
		const auto onScreen = [&](const SClipPoint &point) {
			return ImVec2(
				(point.m_X / point.m_W + 1.0f) * 0.5f * size.x, (1.0f - point.m_Y / point.m_W) * 0.5f * size.y);
		};
		const ImVec2 end = onScreen(to);
		const ImU32 colour = ImGui::GetColorU32(kAdvice);
		ImDrawList *const list = ImGui::GetBackgroundDrawList();
		list->PushClipRect(ImVec2(0.0f, 0.0f), size);
		list->AddLine(onScreen(from), end, colour, 1.5f);
		list->AddCircleFilled(end, 4.0f, colour);
		list->AddText(ImVec2(end.x + 10.0f, end.y - 0.5f * Em()), colour, "sorted for this line of sight");
		list->PopClipRect();
	}

	// Around the last primitive that is drawn of a captured call, while not all are.
	void ShowLastPrimitive(const CLiveView &view, const ImVec2 &size)
	{
		const u32 first = view.Settings().m_FirstCount;
		if (first == 0 || first >= view.CaptureCount())
			return;
		const std::optional<CFloat3> place = view.Capture()->PlaceOf(view.CaptureOrder(), first - 1);
		if (!place)
			return;
		const SClipPoint point = Projected(ViewTransform(view.Camera(), size.x / size.y), *place);
		if (point.m_W <= 0.0f)
			return;
		const ImVec2 at((point.m_X / point.m_W + 1.0f) * 0.5f * size.x, (1.0f - point.m_Y / point.m_W) * 0.5f * size.y);
		ImDrawList *const list = ImGui::GetBackgroundDrawList();
		list->PushClipRect(ImVec2(0.0f, 0.0f), size);
		list->AddCircle(at, 0.9f * Em(), IM_COL32_BLACK, 0, 4.0f);
		list->AddCircle(at, 0.9f * Em(), IM_COL32_WHITE, 0, 2.0f);
		list->PopClipRect();
	}

	// A text on a dark ground, so that it can be read over any picture. Ends at x, or starts there.
	void ShowTag(float x, float y, const std::string &text, bool endsThere)
	{
		const ImVec2 size = ImGui::CalcTextSize(text.c_str());
		const float pad = 0.4f * Em();
		const float left = endsThere ? x - size.x - 2.0f * pad : x;
		ImDrawList *const list = ImGui::GetBackgroundDrawList();
		list->AddRectFilled(
			ImVec2(left, y), ImVec2(left + size.x + 2.0f * pad, y + size.y + pad), IM_COL32(12, 12, 14, 200), 4.0f);
		list->AddText(ImVec2(left + pad, y + 0.5f * pad), ImGui::GetColorU32(ImGuiCol_Text), text.c_str());
	}

	void ShowDivider(float share, const SWipeLabels &labels, const ImVec2 &size)
	{
		const float x = share * size.x;
		const float gap = 0.6f * Em();
		const ImU32 colour = IM_COL32(240, 240, 245, 230);
		ImDrawList *const list = ImGui::GetBackgroundDrawList();
		list->PushClipRect(ImVec2(0.0f, 0.0f), size);
		list->AddLine(ImVec2(x, 0.0f), ImVec2(x, size.y), colour, 2.0f);
		const float y = 0.5f * size.y;
		const float side = 0.5f * Em();
		for (const float direction : {-1.0f, 1.0f}) // a handle: arrows to both sides
			list->AddTriangleFilled(ImVec2(x + direction * 1.3f * side, y),
				ImVec2(x + direction * 0.4f * side, y - side), ImVec2(x + direction * 0.4f * side, y + side), colour);
		ShowTag(x - gap, gap, labels.m_Left, true);
		ShowTag(x + gap, gap, labels.m_Right, false);
		list->PopClipRect();
	}

	// In the middle, over the panel as well where the window is small.
	void ShowKeyList(const ImVec2 &size)
	{
		ImGui::SetNextWindowPos(ImVec2(0.5f * size.x, 0.5f * size.y), ImGuiCond_Always, ImVec2(0.5f, 0.5f));
		ImGui::SetNextWindowSizeConstraints(ImVec2(0.0f, 0.0f), size);
		ImGui::SetNextWindowBgAlpha(0.9f);
		ImGui::Begin("keys", nullptr,
			ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoInputs |
				ImGuiWindowFlags_NoMove);
		if (ImGui::BeginTable("keys", 2, ImGuiTableFlags_SizingFixedFit))
		{
			for (const SKeyBinding &binding : KeyBindings())
			{
				ImGui::TableNextColumn();
				ImGui::TextDisabled("%s", binding.m_KeyName);
				ImGui::TableNextColumn();
				ImGui::TextUnformatted(binding.m_What);
			}
			ImGui::EndTable();
		}
		ImGui::End();
	}
} // namespace

std::optional<EAction> CControlPanel::Show(CLiveView &view, float width, const std::string &message)
{
	const ImVec2 display = ImGui::GetIO().DisplaySize;
	ImGui::SetNextWindowPos(ImVec2(display.x - width, 0.0f));
	ImGui::SetNextWindowSize(ImVec2(width, display.y));
	constexpr ImGuiWindowFlags kFixed =
		ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove;
	ImGui::Begin("panel", nullptr, kFixed);

	SViewSettings settings = view.Settings();
	const bool isCapture = view.Capture() != null;
	const std::optional<EAction> action = ShowButtons(settings, isCapture);
	bool changed = ShowScene(settings, view.Figures(), isCapture);
	changed |= ShowColours(settings, view.Renderer().MostLayers());
	if (isCapture)
	{
		changed |= ShowOrder(settings, view.Scene());
		changed |= ShowScrubber(settings, view);
		ShowCall(view);
		ShowCallFindings(view.Figures());
	}
	else
	{
		changed |= ShowWipe(settings);
		for (const auto &[name, figures] : view.Figures().m_Orders)
			Paragraph(ImGui::GetStyle().Colors[ImGuiCol_Text], name + ": " + PairWords(figures));
		Heading("Sort");
		changed |= ShowOrder(settings, view.Scene());
		changed |= ShowOutput(settings, view.Figures());
		changed |= ShowThreads(settings);
		ShowTimes(view);
		changed |= ShowFindings(settings, view.Figures());
	}
	ShowWarnings(view);
	ImGui::Dummy(ImVec2(0.0f, 0.15f * Em()));
	Paragraph(ImGui::GetStyle().Colors[ImGuiCol_TextDisabled],
		"Drag the picture to turn it, Shift pans, the wheel zooms, a double click goes there, Home comes back. "
		"H shows all keys.");
	if (!view.Figures().m_Trouble.empty())
		Paragraph(kBad, view.Figures().m_Trouble);
	if (!message.empty())
		Paragraph(kGood, message);
	ImGui::End();

	if (changed)
		view.Change(settings);
	return action;
}

bool CControlPanel::ShowScene(SViewSettings &settings, const SViewFigures &figures, bool isCapture)
{
	ImGui::Dummy(ImVec2(0.0f, 0.15f * Em()));
	bool changed = false;
	Label("Scene");
	if (ImGui::BeginCombo("##scene", settings.m_Scene->m_Name))
	{
		for (const SSceneKind &kind : SceneKinds())
		{
			ImGui::PushID(&kind); // several files can have one name
			const bool isChosen = ImGui::Selectable(kind.m_Name, &kind == settings.m_Scene);
			ImGui::PopID();
			if (isChosen)
			{
				settings.m_Scene = &kind;
				settings.m_ParticleCount = kind.m_ParticleCount;
				changed = true;
			}
		}
		ImGui::EndCombo();
	}
	if (isCapture) // as it was
	{
		Paragraph(ImGui::GetStyle().Colors[ImGuiCol_TextDisabled], settings.m_Scene->m_Source);
		return changed;
	}

	Label("Particles");
	if (!m_IsEditing)
		m_EditedParticleCount = int(settings.m_ParticleCount);
	ImGui::SliderInt("##particles", &m_EditedParticleCount, 1, int(settings.m_Scene->m_MaxParticleCount), "%d",
		ImGuiSliderFlags_Logarithmic | ImGuiSliderFlags_AlwaysClamp);
	m_IsEditing = ImGui::IsItemActive();
	if (ImGui::IsItemDeactivatedAfterEdit()) // a scene starts anew, so not for every value on the way
	{
		settings.m_ParticleCount = u32(m_EditedParticleCount);
		changed = true;
	}
	Paragraph(ImGui::GetStyle().Colors[ImGuiCol_TextDisabled], DrawnWords(figures));
	return changed;
}

void CControlPanel::ShowOverlay(const CLiveView &view, float panelWidth, bool showsKeys)
{
	const ImVec2 display = ImGui::GetIO().DisplaySize;
	const ImVec2 size(std::max(display.x - panelWidth, 1.0f), std::max(display.y, 1.0f));
	if (view.FrameCount() == 0)
	{
		ImGui::SetNextWindowPos(ImVec2(size.x * 0.5f, size.y * 0.5f), ImGuiCond_Always, ImVec2(0.5f, 0.5f));
		ImGui::SetNextWindowSize(ImVec2(std::min(16.0f * Em(), size.x), 0.0f));
		ImGui::Begin("simulating", nullptr, ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoInputs);
		ImGui::TextUnformatted("Simulating the scene so far ...");
		ImGui::ProgressBar(view.WarmUpShare());
		ImGui::End();
	}
	else if (view.Settings().m_FreezeOrder)
		ShowLineOfSight(view.SortCamera(), view.Camera(), size);
	if (view.FrameCount() != 0 && view.Capture() != null)
		ShowLastPrimitive(view, size);
	if (view.FrameCount() != 0 && view.HasWipe())
		ShowDivider(view.Settings().m_Wipe.m_Share, view.SideLabels(), size);
	if (showsKeys)
		ShowKeyList(display);
}
} // namespace Viewer
