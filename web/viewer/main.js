import 'uplot/dist/uPlot.min.css';
import '../common/style.css';
