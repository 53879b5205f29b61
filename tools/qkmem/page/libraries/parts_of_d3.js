// What the page uses of D3.
export { hierarchy, partition, treemap } from "d3-hierarchy";
