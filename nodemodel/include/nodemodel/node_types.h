// What kinds of node there are, and what they are called.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace dbcache {

// Stored in every record as an unsigned 32-bit number, so a new type goes to the end.
// clang-format off
enum class node_type_t : std::uint32_t {
  deleted, domain, user, view, view_entry, alert_group, alert_path, host, report_result, report_issue,
  report, agent_check, agent_check_group, rem_check, snmp_check, snmp_check_group, mib_object,
  mib_module, mib_module_object, mib_module_type, mib_type_enum, node_view, plan, day_planner,
  week_planner, date_planner, event, report_instance, report_result_folder, report_result_row,
  report_result_graph, report_result_log, user_profile, log_check_rule, node_class, network_scan,
  log_check_rule_comment, grid_config, grid_station_config, grid_link_config, node_class_regex_rule,
  report_selection, report_check_selection, cluster_config, cluster_server_config,
  custom_alert_path_config, check_accumulation, alert_path_usage, network_scan_work, node_agent_status,
  report_send_to, report_order, forecast_lock, forecast_model, forecast_eval, node_info_group,
  node_info_line, snmp_scan, quick_link, node_class_node_config, node_class_check_group_config,
  node_class_check_config, node_class_check_accumulation_config, node_class_conflict, mount_point,
  domain_export, notification_job, candidate_node, lease, multi_check, agent_multi_check,
  net_multi_check, snmp_multi_check, series, sum_expression, check_expression, multi_check_expression,
  node_class_multi_check_config, domain_report_text, report_report_text, action_connection,
  expected_event, unexpected_event, custom_parameter, enum_check_tag_rule, tag_rule_match, tag,
  graphical_view, graphical_view_node, esxi_check, esxi_check_group, esxi_multi_check, esxi_scan,
  esxi_root_check_group, month_planner,
};
// clang-format on

inline constexpr std::size_t node_type_count = 95;
static_assert(static_cast<std::size_t>(node_type_t::month_planner) + 1 == node_type_count);

// Indexed by the value of node_type_t.
// clang-format off
inline constexpr std::array<std::string_view, node_type_count> node_type_names = {
    "Deleted", "Domain", "User", "View", "ViewEntry", "AlertGroup", "AlertPath", "Host", "ReportResult",
    "ReportIssue", "Report", "AgentCheck", "AgentCheckGroup", "RemCheck", "SnmpCheck", "SnmpCheckGroup",
    "MibObject", "MibModule", "MibModuleObject", "MibModuleType", "MibTypeEnum", "NodeView", "Plan",
    "DayPlanner", "WeekPlanner", "DatePlanner", "Event", "ReportInstance", "ReportResultFolder",
    "ReportResultRow", "ReportResultGraph", "ReportResultLog", "UserProfile", "LogCheckRule",
    "NodeClass", "NetworkScan", "LogCheckRuleComment", "GridConfig", "GridStationConfig",
    "GridLinkConfig", "NodeClassRegexRule", "ReportSelection", "ReportCheckSelection", "ClusterConfig",
    "ClusterServerConfig", "CustomAlertPathConfig", "CheckAccumulation", "AlertPathUsage",
    "NetworkScanWork", "NodeAgentStatus", "ReportSendTo", "ReportOrder", "ForecastLock", "ForecastModel",
    "ForecastEval", "NodeInfoGroup", "NodeInfoLine", "SnmpScan", "QuickLink", "NodeClassNodeConfig",
    "NodeClassCheckGroupConfig", "NodeClassCheckConfig", "NodeClassCheckAccumulationConfig",
    "NodeClassConflict", "MountPoint", "DomainExport", "NotificationJob", "CandidateNode", "Lease",
    "MultiCheck", "AgentMultiCheck", "NetMultiCheck", "SnmpMultiCheck", "Series", "SumExpression",
    "CheckExpression", "MultiCheckExpression", "NodeClassMultiCheckConfig", "DomainReportText",
    "ReportReportText", "ActionConnection", "ExpectedEvent", "UnexpectedEvent", "CustomParameter",
    "EnumCheckTagRule", "TagRuleMatch", "Tag", "GraphicalView", "GraphicalViewNode", "EsxiCheck",
    "EsxiCheckGroup", "EsxiMultiCheck", "EsxiScan", "EsxiRootCheckGroup", "MonthPlanner",
};
// clang-format on

// The name of a type; empty for a value that is none.
constexpr std::string_view node_type_name(node_type_t type) {
  const auto value = static_cast<std::size_t>(type);
  return value < node_type_names.size() ? node_type_names[value] : std::string_view{};
}

// The class layouts, in an order of their own that has nothing to do with node_type_t.
// clang-format off
inline constexpr std::array<std::string_view, 96> class_layout_names = {
    "NodeInfoGroup", "Check", "NodeSummary", "Domain", "Node", "Report", "ReportResult", "ReportIssue",
    "User", "View", "ViewEntry", "AlertGroup", "Enumeration", "AlertPath", "ClusterInfo", "MetaInfo",
    "StatusInfo", "EnumerationValue", "CheckSummary", "ScoreInfo", "NodeInfoLine", "CheckGroup",
    "ClassLayout", "GroupLayout", "PropertyLayout", "PropertySpecialValue", "MibObject", "MibModule",
    "MibModuleObject", "MibModuleType", "MibTypeEnum", "NodeView", "Plan", "DayPlanner", "WeekPlanner",
    "DatePlanner", "Event", "ReportInstance", "ReportResultFolder", "ReportResultRow",
    "ReportResultGraph", "LogCheckRuleComment", "ReportResultLog", "UserProfile", "LogCheckRule",
    "NodeClassRegexRule", "ReportSelection", "ReportCheckSelection", "NodeClass", "NetworkScan",
    "GridConfig", "GridStationConfig", "GridLinkConfig", "ClusterConfig", "ClusterServerConfig",
    "CustomAlertPathConfig", "CheckAccumulation", "AlertPathUsage", "NetworkScanWork", "NodeAgentStatus",
    "QuickLink", "ReportSendTo", "ReportOrder", "ForecastLock", "ForecastModel", "ForecastEval",
    "SnmpScan", "NodeClassNodeConfig", "NodeClassCheckGroupConfig", "NodeClassCheckConfig",
    "NodeClassCheckAccumulationConfig", "NodeClassConflict", "TemplateLayout", "MountPoint",
    "DomainExport", "NotificationJob", "CandidateNode", "Lease", "MultiCheck", "Series", "SumExpression",
    "CheckExpression", "MultiCheckExpression", "NodeClassMultiCheckConfig", "ReportText",
    "ActionConnection", "ExpectedEvent", "UnexpectedEvent", "CustomParameter", "Tag", "EnumCheckTagRule",
    "TagRuleMatch", "GraphicalView", "GraphicalViewNode", "EsxiScan", "MonthPlanner",
};
// clang-format on
static_assert(!node_type_names.back().empty() && !class_layout_names.back().empty());

}  // namespace dbcache
